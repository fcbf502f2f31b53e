// SPDX-License-Identifier: BSD-3-Clause
// The dump of the capability templates, for people. Reads the templates only.
#include <cstdio>

#include "hcx_mmm_table.h"
#include "libhcx.h"

// One line of the dump. A macro, so that the compiler checks each format.
#define SHOW(format, ...)                          \
  do {                                             \
    if (display) {                                 \
      printf(format, __VA_ARGS__);                 \
    } else {                                       \
      libhcx_syslog(LOG_MMM, format, __VA_ARGS__); \
    }                                              \
  } while (0)

namespace hcx {
namespace {

const char *use(const MMM_WINDOW &window) {
  return window.supported == 1 ? "yes" : "no";
}

template <class Row>
void show_paths(int display, const Row *rows) {
  SHOW("Index %-31s\t%-13s\t\t\tUse\tmin\tmax\thelp\n", "Directory ", "File");
  for_each_row(rows, [display](int index, const Row &row) {
    const MMM_WINDOW &w = row.window;
    SHOW("%3d   %-30s\t%-25s\t%s\t%d.%d\t%d.%d\t%s\n", index, row.dir_string, row.file_string, use(w),
         w.minMajor, w.minMinor, w.maxMajor, w.maxMinor, w.a_help);
  });
}

void show_events(int display) {
  SHOW("%s", "Index\tcode\tevent\tUse\tmin\tmax\thelp\n");
  for_each_row(mmm_netlink_template, [display](int index, const MMM_NETLINK &row) {
    const MMM_WINDOW &w = row.window;
    SHOW("%3d\t%04x\t%04x\t%s\t%d:%d\t%d:%d     %s\n", index, row.code, row.eventCode, use(w), w.minMajor,
         w.minMinor, w.maxMajor, w.maxMinor, w.a_help);
  });
}

void show_requests(int display) {
  SHOW("%s", "Index\tcode\t\tcommand\t\tUse\tmin\tmax\thelp\n");
  for_each_row(mmm_bsg_ioctl_template, [display](int index, const MMM_BSG_IOCTL &row) {
    const MMM_WINDOW &w = row.window;
    SHOW("%3d\t%08x\t%08x\t%s\t%d:%d\t%d:%d     %s\n", index, row.code, row.command, use(w), w.minMajor,
         w.minMinor, w.maxMajor, w.maxMinor, w.a_help);
  });
}

}  // namespace
}  // namespace hcx

void hcx_show_mmm(int display) {
  HCX_TRACE();
  SHOW("%s - Sysfs class files\n", __func__);
  hcx::show_paths(display, hcx::mmm_sys_class_template);
  SHOW("%s - Sysfs device(s) files\n", __func__);
  hcx::show_paths(display, hcx::mmm_sys_devices_template);
  SHOW("%s - Netlink events\n", __func__);
  hcx::show_events(display);
  SHOW("%s - BSG ioctl commands\n", __func__);
  hcx::show_requests(display);
  SHOW("%s - BSG devices\n", __func__);
  hcx::show_paths(display, hcx::mmm_bsg_device_template);
}
