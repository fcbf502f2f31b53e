// SPDX-License-Identifier: BSD-3-Clause
// The management interface version: asking the driver for it, settling on the lower of the driver's and ours,
// and switching off the template rows that do not have it. Start-up only, before other threads make calls.
#include <linux/bsg.h>
#include <scsi/sg.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "hcx_mmm_table.h"
#include "hcx_util_attr.h"
#include "libhcx.h"

namespace hcx {

constexpr char host_class[] = "/sys/class/scsi_host";
constexpr int no_host = -1;

// The driver takes and gives 24 bytes, whatever part of them is in use.
struct RevRequest {
  fc_bsg_request request;
  uint32_t reserved;
};
static_assert(sizeof(RevRequest) == 24 && offsetof(RevRequest, reserved) == 20);

struct RevReply {
  uint32_t result;
  uint32_t reply_payload_rcv_len;
  MgmtRevInfo revision;
  uint32_t reserved[2];
};
static_assert(sizeof(RevReply) == 24 && offsetof(RevReply, revision) == offsetof(fc_bsg_reply, reply_data));

// Whether dir_name followed by file_name opens for reading. The templates are not asked: they are not settled.
static bool mmm_sysfs_test_file(const char *dir_name, const char *file_name) {
  const Path path("%.255s%s", dir_name, file_name);
  HCX_LOG_PATH(path.c_str());
  if (Fd(sysio::machine().open(path.c_str(), O_RDONLY)).ok()) return true;
  HCX_LOG(LOG_ERROR, "failed to open - %s", path.c_str());
  return false;
}

static sg_io_v4 rev_header(const RevRequest &request, const RevReply &reply) {
  sg_io_v4 header = {};
  header.guard = 'Q';
  header.protocol = BSG_PROTOCOL_SCSI;
  header.subprotocol = BSG_SUB_PROTOCOL_SCSI_TRANSPORT;
  header.request_len = sizeof request;
  header.request = reinterpret_cast<uintptr_t>(&request);
  header.max_response_len = sizeof(fc_bsg_reply);
  header.response = reinterpret_cast<uintptr_t>(&reply);
  header.timeout = 60000;
  return header;
}

static int mmm_send_bsg_get_mgmt_rev(int host_no) {
  HCX_TRACE();
  HCX_LOG(LOG_MMM, "getting vosk managagement version from /dev/bsg/fc_host%d", host_no);
  auto request = heap_array<RevRequest>(1);
  auto reply = heap_array<RevReply>(1);
  if (!request || !reply) {
    HCX_LOG(LOG_ERROR, "out of memory");
    return 0;
  }
  request[0].request.msgcode = FC_BSG_HST_VENDOR;
  request[0].request.rqst_data.h_vendor.vendor_id = VOSK_BSG_VENDOR_ID;
  request[0].request.rqst_data.h_vendor.vendor_cmd[0] = VOSK_BSG_VENDOR_GET_MGMT_REV;
  reply[0].reply_payload_rcv_len = sizeof(RevReply);
  sg_io_v4 header = rev_header(request[0], reply[0]);

  const Path path("/dev/bsg/fc_host%d", host_no);
  HCX_LOG_PATH(path.c_str());
  Fd fd(sysio::machine().open(path.c_str(), O_RDWR));
  if (!fd.ok()) {
    HCX_LOG(LOG_ERROR, "failed to open - %s", path.c_str());
    return 0;
  }
  const int rc = sysio::machine().ioctl(fd.get(), SG_IO, &header);
  fd.reset();
  const uint32_t result = reply[0].result;
  if (rc < 0 || result != 0) {
    if (rc < 0) {
      HCX_LOG(LOG_ERROR, "ioctl failed x%08x result x%08x", rc, result);
    } else {
      HCX_LOG(LOG_ERROR, "bad result x%08x", result);
    }
    HCX_LOG(LOG_ERROR, "ioctl failed x%08x result x%08x", rc, result);
    return 0;
  }
  vosk_major = reply[0].revision.a_Major;
  vosk_minor = reply[0].revision.a_Minor;
  return 1;
}

// Number of the first physical port, by name; virtual ports are never asked.
static int fetch_management_version() {
  std::vector<std::string> names;
  sysio::list_sorted(host_class, "host", names);
  HCX_LOG(LOG_MMM, "found %d SCSI host(s)", static_cast<int>(names.size()));
  int host_no = no_host;
  for (const std::string &name : names) {
    const Text<255> dir("/sys/class/scsi_host/%s/", name.c_str());
    if (!mmm_sysfs_test_file(dir.c_str(), "vosk_log_verbose") ||
        !mmm_sysfs_test_file(dir.c_str(), "npiv_info")) {
      continue;
    }
    if (!Fd(sysio::machine().open(dir.c_str(), O_RDONLY | O_DIRECTORY)).ok()) {
      HCX_LOG(LOG_ERROR, "could not open directory %s", dir.c_str());
      continue;
    }
    Text<255> npiv_info;
    hcx_sysfs_read_str(dir.c_str(), "npiv_info", npiv_info.data(), npiv_info.size());
    const auto number = scan_decimal(name.c_str() + strlen("host"));
    if (number && (npiv_info.equals("NPIV Physical") || npiv_info.equals("NPIV Not Supported"))) {
      HCX_LOG(LOG_MMM, "using physcial port at host %s", name.c_str());
      host_no = static_cast<int>(*number);
      break;
    }
    HCX_LOG(LOG_MMM, "host at %s is not a physical port", name.c_str());
  }
  if (host_no < 0) {
    HCX_LOG(LOG_ERROR, "did not find an vosk SCSI host");
    return 0;
  }
  return mmm_send_bsg_get_mgmt_rev(host_no);
}

namespace {

enum class Fit { inside, wrong_major, minor_too_high, minor_too_low };

// How the version that the library works to lies in a row's window.
Fit judge(const MMM_WINDOW &window) {
  if (libhcx_major < window.minMajor || libhcx_major > window.maxMajor) return Fit::wrong_major;
  if (libhcx_major == window.minMajor && window.minMinor > libhcx_minor) return Fit::minor_too_high;
  if (libhcx_major == window.maxMajor && window.maxMinor < libhcx_minor) return Fit::minor_too_low;
  return Fit::inside;
}

}  // namespace
}  // namespace hcx

// Switches off the rows of one template. A macro, so that the compiler checks each format.
#define SETTLE(rows, major_text, high_text, low_text)                        \
  for (int index = 0; (rows)[index].window.a_help[0] != '\0'; ++index) {     \
    const hcx::Fit fit = hcx::judge((rows)[index].window);                   \
    if (fit != hcx::Fit::inside) (rows)[index].window.supported = 0;         \
    if (fit == hcx::Fit::wrong_major) HCX_LOG(LOG_MMM, major_text, index);   \
    if (fit == hcx::Fit::minor_too_high) HCX_LOG(LOG_MMM, high_text, index); \
    if (fit == hcx::Fit::minor_too_low) HCX_LOG(LOG_MMM, low_text, index);   \
  }

int get_vosk_management_version() {
  using namespace hcx;
  HCX_TRACE();
  vosk_major = vosk_minor = 0;
  libhcx_major = 2;
  libhcx_minor = 0;
  if (!no_throw(0, fetch_management_version)) return 0;

  if (vosk_major < libhcx_major) {
    libhcx_major = vosk_major;
    libhcx_minor = vosk_minor;
    HCX_LOG(LOG_MMM, "down reving libhcx major and minor\n");
  } else if (vosk_major > libhcx_major) {
    HCX_LOG(LOG_MMM, "driver has newer major\n");
  } else if (vosk_minor < libhcx_minor) {
    libhcx_minor = vosk_minor;
    HCX_LOG(LOG_MMM, "down revving libhcx minor\n");
  } else if (vosk_minor > libhcx_minor) {
    HCX_LOG(LOG_MMM, "driver has newer minor\n");
  }
  HCX_LOG(LOG_MMM, "vosk driver mmm %d.%d  libhcx mmm %d.%d\n", vosk_major, vosk_minor, libhcx_major,
          libhcx_minor);

  SETTLE(mmm_sys_class_template, "SysClass index %d major not supported, too low\n",
         "Sysclass index %d minor not supported, too high\n",
         "Sysclass index %d minor not supported, too low\n");
  SETTLE(mmm_sys_devices_template, "SysDevices index %d major not supported, too low\n",
         "SysDevices index %d minor not supported, too high\n",
         "SysDevice index %d minor not supported, too low\n");
  SETTLE(mmm_netlink_template, "Netlink index %d major not supported, too low\n",
         "Netlink index %d minor not supported, too high\n",
         "Netlink index %d minor not supported, too low\n");
  SETTLE(mmm_bsg_ioctl_template, "Bsg ioctl index %d major not supported, too low\n",
         "Bsg ioctl index %d minor not supported, too high\n",
         "Bsg ioctl index %d minor not supported, too low\n");
  SETTLE(mmm_bsg_device_template, "Bsg device index %d major not supported, too low\n",
         "Bsg device index %d minor not supported, too high\n",
         "Bsg device index %d minor not supported, too low\n");
  return 1;
}
