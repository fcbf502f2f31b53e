// SPDX-License-Identifier: BSD-3-Clause
// The finders: whether the running driver offers an attribute, an event, a request or a node. They only read
// the templates and may be called from any thread once start-up is over.
#include "hcx_mmm.h"

#include <cstring>

#include "hcx_mmm_table.h"
#include "libhcx.h"

namespace hcx {
namespace {

constexpr int not_found = -1;

// Index of the first row that `matches`.
template <class Row, class Matches>
int find_row(const Row *rows, Matches &&matches) {
  for (int index = 0; rows[index].window.a_help[0] != '\0'; ++index) {
    if (matches(rows[index])) return index;
  }
  return not_found;
}

const char *yes_no(int32_t supported) {
  return supported == 1 ? "yes" : "no";
}

const char *text_of(const char *text) {
  return text ? text : "";
}
int length_of(const char *text) {
  return static_cast<int>(strlen(text));
}

bool begins_with(const char *text, const char *prefix) {
  return strncmp(text, prefix, strlen(prefix)) == 0;
}

// Logs both names under the finder's name; false when there is nothing to look for in them.
bool names_usable(const char *finder, const char *dir, const char *file) {
  libhcx_syslog(LOG_MMM, "%s - FULL PATH %s (%d) %s (%d)\n", finder, dir, length_of(dir), file,
                length_of(file));
  if (length_of(dir) >= 2 && file[0] != '\0') return true;
  libhcx_syslog(LOG_ERROR, "%s - invalid length dir_len %d file_len %d\n", finder, length_of(dir),
                length_of(file));
  return false;
}

// The end of every search for a path: logs what was found and answers.
template <class Row>
int path_answer(const char *finder, const Row *rows, int index, const char *dir, const char *file) {
  if (index == not_found) {
    libhcx_syslog(LOG_ERROR, "%s - directory %s or file %s not found\n", finder, dir, file);
    return 0;
  }
  const int32_t supported = rows[index].window.supported;
  libhcx_syslog(LOG_MMM, "%s - directory %s file %s index %d - supported %s\n", finder, dir, file, index,
                yes_no(supported));
  return supported;
}

// The class directory of an attribute's directory: "/sys/class/scsi_host" of "/sys/class/scsi_host/host3/".
// False when the directory does not end in "/".
bool class_dir(const char *dir, Path &class_path) {
  char *path = class_path.assign(dir).data();
  // A host's statistics belong to the host. The remote ports' and virtual ports' classes may pass here too.
  if (begins_with(path, "/sys/class/f")) {
    if (char *statistics = strstr(path, "/statistics/")) statistics[1] = '\0';
  }
  const size_t length = strlen(path);
  if (length == 0 || path[length - 1] != '/') return false;
  path[length - 1] = '\0';
  char *parent_end = strrchr(path, '/');
  *(parent_end ? parent_end : path) = '\0';
  return true;
}

}  // namespace
}  // namespace hcx

int find_bsg_ioctl_mmm(int command, int code) {
  HCX_TRACE();
  const auto wanted_code = static_cast<uint32_t>(code);
  const auto wanted_command = static_cast<uint32_t>(command);
  const MMM_BSG_IOCTL *rows = hcx::mmm_bsg_ioctl_template;
  const int index = hcx::find_row(rows, [&](const MMM_BSG_IOCTL &row) {
    return row.code == wanted_code && (wanted_code != FC_BSG_HST_VENDOR || row.command == wanted_command);
  });
  if (index == hcx::not_found) {
    HCX_LOG(LOG_ERROR, "code x%08x command x%08x not found\n", wanted_code, wanted_command);
    return 0;
  }
  const MMM_WINDOW &window = rows[index].window;
  HCX_LOG(LOG_MMM, "%s - supported %s\n", window.a_help, hcx::yes_no(window.supported));
  return window.supported;
}

int find_netlink_mmm(int code, int eventCode) {
  HCX_TRACE();
  const auto wanted_code = static_cast<uint32_t>(code);
  const auto wanted_event = static_cast<uint32_t>(eventCode);
  const MMM_NETLINK *rows = hcx::mmm_netlink_template;
  const int index = hcx::find_row(rows, [&](const MMM_NETLINK &row) {
    return row.code == wanted_code &&
           (wanted_code != VOSKH_EVT_VENDOR_UNIQUE || row.eventCode == wanted_event);
  });
  if (index == hcx::not_found) {
    HCX_LOG(LOG_ERROR, "code x%08x eventCode x%08x not found\n", wanted_code, wanted_event);
    return 0;
  }
  const MMM_WINDOW &window = rows[index].window;
  HCX_LOG(LOG_MMM, "%s - supported %s\n", window.a_help, hcx::yes_no(window.supported));
  return window.supported;
}

int find_bsg_device_mmm(const char *dir_name, const char *file_name) {
  HCX_TRACE();
  const char *dir = hcx::text_of(dir_name);
  const char *file = hcx::text_of(file_name);
  if (!hcx::names_usable(__func__, dir, file)) return 0;
  // The keys are the words less their last character; prefixes match all the same.
  const char *key = nullptr;
  if (hcx::begins_with(file, "fc_host")) {
    key = "fc_hos";
  } else if (hcx::begins_with(file, "rport-")) {
    key = "rport";
  } else {
    HCX_LOG(LOG_ERROR, "sys device path invalid for dir %s\n", dir);
    return 0;
  }
  const MMM_BSG_DEV *rows = hcx::mmm_bsg_device_template;
  const int index = hcx::find_row(rows, [&](const MMM_BSG_DEV &row) {
    return hcx::begins_with(row.dir_string, dir) && hcx::begins_with(row.file_string, key);
  });
  return hcx::path_answer(__func__, rows, index, dir, file);
}

int find_sys_device_mmm(const char *dir_name, const char *file_name) {
  HCX_TRACE();
  const char *dir = hcx::text_of(dir_name);
  const char *file = hcx::text_of(file_name);
  if (!hcx::names_usable(__func__, dir, file)) return 0;
  const char *key = nullptr;
  if (hcx::begins_with(dir, "/sys/devices")) {
    key = "/sys/device";
  } else if (hcx::begins_with(dir, "/sys/device")) {
    key = "/sys/devic";
  } else {
    HCX_LOG(LOG_ERROR, "sys device path invalid for dir %s\n", dir);
    return 0;
  }
  const MMM_SYSFS *rows = hcx::mmm_sys_devices_template;
  const int index = hcx::find_row(rows, [&](const MMM_SYSFS &row) {
    return hcx::begins_with(row.dir_string, key) && hcx::begins_with(row.file_string, file);
  });
  return hcx::path_answer(__func__, rows, index, dir, file);
}

int find_sys_class_mmm(const char *dir_name, const char *file_name) {
  HCX_TRACE();
  const char *dir = hcx::text_of(dir_name);
  const char *file = hcx::text_of(file_name);
  if (!hcx::names_usable(__func__, dir, file)) return 0;
  if (hcx::begins_with(dir, "/sys/device")) return find_sys_device_mmm(dir, file);
  hcx::Path class_path;
  if (!hcx::class_dir(dir, class_path)) {
    HCX_LOG(LOG_ERROR, "missing '/' in dir_name %s\n", dir);
    return 0;
  }
  const char *class_name = class_path.c_str();
  HCX_LOG(LOG_MMM, "ADJUSTED  %s (%d) %s (%d)\n", class_name, hcx::length_of(class_name), file,
          hcx::length_of(file));
  const MMM_SYSFS *rows = hcx::mmm_sys_class_template;
  const int index = hcx::find_row(rows, [&](const MMM_SYSFS &row) {
    return strcmp(row.dir_string, class_name) == 0 && hcx::begins_with(row.file_string, file);
  });
  return hcx::path_answer(__func__, rows, index, dir, file);
}
