// SPDX-License-Identifier: BSD-3-Clause
// Capabilities: what each finder matches, which rows each driver version switches off, the version query byte
// by byte and every way in which it can fail.
#include <errno.h>
#include <gtest/gtest.h>
#include <linux/bsg.h>
#include <scsi/sg.h>

#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "hcx_mmm_table.h"
#include "libhcx.h"
#include "sim_machine.h"
#include "transport_fixture.h"

namespace {

using Lines = std::vector<std::string>;

// Sees the header and the reply as the caller made them, before anybody answers.
class BsgSpy : public sim::Machine {
 public:
  int ioctl(int fd, unsigned long request, void *arg) override {
    if (request == SG_IO && arg) {
      const auto *h = static_cast<const sg_io_v4 *>(arg);
      header.assign(static_cast<const char *>(arg), sizeof(sg_io_v4));
      body.assign(std::bit_cast<const char *>(h->request), 24);
      reply.assign(std::bit_cast<const char *>(h->response), 24);
    }
    return sim::Machine::ioctl(fd, request, arg);
  }
  std::string header, body, reply;
};

template <class Row>
void collect_off(const char *name, const Row *rows, Lines &off) {
  for (int i = 0; rows[i].window.a_help[0] != '\0'; ++i) {
    if (rows[i].window.supported != 1) off.push_back(name + std::to_string(i));
  }
}

Lines rows_off() {
  Lines off;
  collect_off("class", hcx::mmm_sys_class_template, off);
  collect_off("device", hcx::mmm_sys_devices_template, off);
  collect_off("event", hcx::mmm_netlink_template, off);
  collect_off("request", hcx::mmm_bsg_ioctl_template, off);
  collect_off("node", hcx::mmm_bsg_device_template, off);
  return off;
}

class Mmm : public testing::Test {
 protected:
  Mmm() {
    m.vfs().put_dir("/tmp");
    libhcx_syslog_enable(LOG_ERROR | LOG_MMM);
  }
  ~Mmm() override { EXPECT_EQ(m.open_fds(), 0u); }
  std::string last_line() { return m.syslog_lines().empty() ? "" : m.syslog_lines().back(); }

  BsgSpy m;
  sim::Installed guard{m};
};

struct PathCase {
  const char *dir;
  const char *file;
  int row;             // of the class template unless the answer names another; -1: none
  const char *answer;  // the last log line, after the finder's name
};

constexpr char fc3[] = "/sys/class/fc_host/host3/";
constexpr char scsi3[] = "/sys/class/scsi_host/host3/";

TEST_F(Mmm, ClassAttributes) {
  const std::string long_dir = "/sys/class/scsi_host/" + std::string(300, 'h') + "/";
  const PathCase cases[] = {
      {scsi3, "npiv_info", 0, nullptr},
      {scsi3, "s", 6, nullptr},
      {fc3, "port_name", 29, nullptr},
      {"/sys/class/fc_host/host3/statistics/", "tx_frames", 46, nullptr},
      {fc3, "tx_frames", 46, nullptr},
      {"/sys/class/fc_remote_ports/rport-3:0-1/", "roles", 60, nullptr},
      {"/sys/class/fc_remote_ports/rport-3:0-1/statistics/", "port_state", 67, nullptr},
      {scsi3, "npiv_infos", -1, "directory /sys/class/scsi_host/host3/ or file npiv_infos not found\n"},
      {"/sys/class/scsi_hosts/host3/", "info", -1,
       "directory /sys/class/scsi_hosts/host3/ or file info not found\n"},
      {"/sys/class/scsi_host/", "info", -1, "directory /sys/class/scsi_host/ or file info not found\n"},
      {"//", "info", -1, "directory // or file info not found\n"},
      {"/sys/class/scsi_host/host3", "info", -1, "missing '/' in dir_name /sys/class/scsi_host/host3\n"},
      {"/", "info", -1, "invalid length dir_len 1 file_len 4\n"},
      {scsi3, "", -1, "invalid length dir_len 27 file_len 0\n"},
      {nullptr, nullptr, -1, "invalid length dir_len 0 file_len 0\n"},
      {long_dir.c_str(), "info", -1, nullptr},
  };
  for (const PathCase &c : cases) {
    m.clear_records();
    EXPECT_EQ(find_sys_class_mmm(c.dir, c.file), c.row >= 0 ? 1 : 0) << c.file;
    if (c.row >= 0) {
      EXPECT_EQ(last_line(), std::string("find_sys_class_mmm - directory ") + c.dir + " file " + c.file +
                                 " index " + std::to_string(c.row) + " - supported yes\n");
    } else if (c.answer) {
      EXPECT_EQ(last_line(), std::string("find_sys_class_mmm - ") + c.answer);
    } else {
      EXPECT_NE(last_line().find("find_sys_class_mmm - missing '/' in dir_name "), std::string::npos);
    }
  }
  m.clear_records();
  find_sys_class_mmm("/sys/class/fc_host/host3/statistics/", "tx_frames");
  EXPECT_EQ(m.syslog_lines().at(0),
            "find_sys_class_mmm - FULL PATH /sys/class/fc_host/host3/statistics/ (36) tx_frames (9)\n");
  EXPECT_EQ(m.syslog_lines().at(1), "find_sys_class_mmm - ADJUSTED  /sys/class/fc_host (18) tx_frames (9)\n");
}

TEST_F(Mmm, DeviceAttributesAndNodes) {
  constexpr char pci[] = "/sys/devices/pci0000:00/0000:05:00.0/";
  const auto check = [&](auto find, const char *name, std::initializer_list<PathCase> cases) {
    for (const PathCase &c : cases) {
      m.clear_records();
      EXPECT_EQ(find(c.dir, c.file), c.row >= 0 ? 1 : 0) << c.file;
      std::string answer = c.answer ? c.answer : "";
      if (!c.answer)
        answer = std::string("directory ") + c.dir + " file " + c.file + " index " + std::to_string(c.row) +
                 " - supported yes\n";
      EXPECT_EQ(last_line(), std::string(name) + " - " + answer);
    }
  };
  check(
      find_sys_device_mmm, "find_sys_device_mmm",
      {{"/sys/devices", "device", 1, nullptr},
       {"/sys/device", "config", 3, nullptr},
       {pci, "v", 2, nullptr},
       {pci, "resource", -1, "directory /sys/devices/pci0000:00/0000:05:00.0/ or file resource not found\n"},
       {"/sys/class/", "irq", -1, "sys device path invalid for dir /sys/class/\n"},
       {pci, "", -1, "invalid length dir_len 37 file_len 0\n"}});
  // The class finder hands PCI directories over, with or without a trailing '/'.
  check(find_sys_class_mmm, "find_sys_device_mmm", {{"/sys/devices/x", "irq", 0, nullptr}});
  check(find_bsg_device_mmm, "find_bsg_device_mmm",
        {{"/dev/bsg", "fc_host3", 0, nullptr},
         {"/dev/bsg", "rport-2:0-1", 1, nullptr},
         {"/dev/bsg/", "fc_host3", -1, "directory /dev/bsg/ or file fc_host3 not found\n"},
         {"/dev/bsg", "fc_hos", -1, "sys device path invalid for dir /dev/bsg\n"},
         {"/", "fc_host3", -1, "invalid length dir_len 1 file_len 8\n"},
         {nullptr, nullptr, -1, "invalid length dir_len 0 file_len 0\n"}});
}

TEST_F(Mmm, EventsAndRequests) {
  struct Case {
    bool event;
    int code, detail, found;
    const char *answer;
  };
  const auto vendor = static_cast<int>(0x800000ff);
  const Case cases[] = {
      {true, 2, 0x99, 1, "Netlink link up event - supported yes\n"},
      {true, 0x202, 0, 1, "Netlink port online event - supported yes\n"},
      {true, 0x201, 0, 0, "code x00000201 eventCode x00000000 not found\n"},
      {true, 0xffff, 0x800, 1, "Netlink vendor unique adapter event - supported yes\n"},
      {true, 0xffff, 0x3, 0, "code x0000ffff eventCode x00000003 not found\n"},
      {true, -1, -1, 0, "code xffffffff eventCode xffffffff not found\n"},
      {false, 0x40000002, 0x77, 1, "BSG send CT command - supported yes\n"},
      {false, vendor, 6, 1, "BSG vendor unique get management rev - supported yes\n"},
      {false, vendor, 0xa, 1, "BSG vendor unique sli4 diag mode end - supported yes\n"},
      {false, vendor, 0xb, 0, "code x800000ff command x0000000b not found\n"},
      {false, 6, vendor, 0, "code x00000006 command x800000ff not found\n"},
  };
  for (const Case &c : cases) {
    const std::string name = c.event ? "find_netlink_mmm - " : "find_bsg_ioctl_mmm - ";
    const int found = c.event ? find_netlink_mmm(c.code, c.detail) : find_bsg_ioctl_mmm(c.detail, c.code);
    EXPECT_EQ(found, c.found) << c.answer;
    EXPECT_EQ(last_line(), name + c.answer);
  }
}

// ---- Settlement: rows that are off stay off, so each version is a test of its own ----

struct Settled {
  uint32_t major, minor;
  uint32_t lib_major, lib_minor;
  Lines off;
  const char *line;  // what the comparison logs, empty for nothing
};

class Settlement : public Mmm, public testing::WithParamInterface<int> {};

const Settled settlements[] = {
    {1, 0, 1, 0, {"class25", "class26", "request12", "request13"}, "down reving libhcx major and minor\n"},
    {1, 1, 1, 1, {"class25", "request12", "request13"}, "down reving libhcx major and minor\n"},
    {1, 5, 1, 5, {"class25", "request12", "request13"}, "down reving libhcx major and minor\n"},
    {2, 0, 2, 0, {}, ""},
    {2, 7, 2, 0, {}, "driver has newer minor\n"},
    {3, 5, 2, 0, {}, "driver has newer major\n"},
};

TEST_P(Settlement, SwitchesOffWhatTheDriverLacks) {
  const Settled &s = settlements[GetParam()];
  m.add_host({.number = 3});
  m.driver_version(s.major, s.minor);
  ASSERT_EQ(get_vosk_management_version(), 1);
  EXPECT_EQ(rows_off(), s.off);
  EXPECT_EQ(hcx::vosk_major, s.major);
  EXPECT_EQ(hcx::vosk_minor, s.minor);
  EXPECT_EQ(hcx::libhcx_major, s.lib_major);
  EXPECT_EQ(hcx::libhcx_minor, s.lib_minor);
  const std::string name = "get_vosk_management_version - ";
  const auto text = [](uint32_t a, uint32_t b) { return std::to_string(a) + "." + std::to_string(b); };
  EXPECT_TRUE(m.logged(name + "vosk driver mmm " + text(s.major, s.minor) + "  libhcx mmm " +
                       text(s.lib_major, s.lib_minor) + "\n"));
  EXPECT_TRUE(*s.line == '\0' || m.logged(name + s.line));

  const int priority = s.major < 2 ? 0 : 1;
  EXPECT_EQ(find_sys_class_mmm(scsi3, "vosk_enable_fcp_priority"), priority);
  EXPECT_EQ(find_bsg_ioctl_mmm(0xd, static_cast<int>(0x800000ff)), priority);
  m.clear_records();
  hcx_show_mmm(0);
  EXPECT_TRUE(m.logged(std::string(" 25   /sys/class/scsi_host          \tvosk_enable_fcp_priority \t") +
                       (priority ? "yes" : "no") + "\t2.0\t9.9\tFCP priority enable flag (RW)\n"));

  // A newer driver, loaded later, does not bring rows back.
  m.driver_version(3, 0);
  ASSERT_EQ(get_vosk_management_version(), 1);
  EXPECT_EQ(rows_off(), s.off);
  EXPECT_EQ(hcx::libhcx_major, 2u);
}
INSTANTIATE_TEST_SUITE_P(Versions, Settlement, testing::Range(0, static_cast<int>(std::size(settlements))));

TEST_F(Mmm, AVersionBelowAllWindowsSwitchesEverythingOff) {
  m.add_host({.number = 3});
  m.driver_version(0, 9);
  ASSERT_EQ(get_vosk_management_version(), 1);
  EXPECT_EQ(rows_off().size(), 71u + 4 + 15 + 14 + 2);
  EXPECT_TRUE(m.logged("get_vosk_management_version - Bsg ioctl index 13 major not supported, too low\n"));
  // The next query cannot even tell a physical port.
  EXPECT_EQ(get_vosk_management_version(), 0);
}

TEST_F(Mmm, MinorMessages) {
  m.add_host({.number = 3});
  m.driver_version(1, 0);
  hcx::mmm_sys_devices_template[2].window.minMinor = 4;
  hcx::mmm_sys_devices_template[3].window = {1, 0, 0, 1, 0, "any"};
  hcx::mmm_netlink_template[4].window.maxMajor = 0;
  ASSERT_EQ(get_vosk_management_version(), 1);
  for (const char *line :
       {"SysDevices index 2 minor not supported, too high", "Sysclass index 26 minor not supported, too high",
        "SysClass index 25 major not supported, too low", "Netlink index 4 major not supported, too low"})
    EXPECT_TRUE(m.logged(std::string("get_vosk_management_version - ") + line)) << line;
  EXPECT_EQ(hcx::mmm_sys_devices_template[3].window.supported, 1);
}

TEST_F(Mmm, MinorAboveAWindow) {
  m.add_host({.number = 3});
  m.driver_version(1, 3);
  hcx::mmm_sys_devices_template[3].window.maxMajor = 1;
  hcx::mmm_sys_devices_template[3].window.maxMinor = 2;
  hcx::mmm_bsg_device_template[1].window.maxMajor = 1;
  hcx::mmm_bsg_device_template[1].window.maxMinor = 3;
  ASSERT_EQ(get_vosk_management_version(), 1);
  EXPECT_TRUE(m.logged("get_vosk_management_version - SysDevice index 3 minor not supported, too low\n"));
  EXPECT_EQ(hcx::mmm_sys_devices_template[3].window.supported, 0);
  EXPECT_EQ(hcx::mmm_bsg_device_template[1].window.supported, 1);
}

// ---- The query ----

TEST_F(Mmm, QueryBytes) {
  m.add_host({.number = 3});
  ASSERT_EQ(get_vosk_management_version(), 1);
  EXPECT_EQ(to_hex(m.body), native("ff000080 5a1d000000000001 06000000 0000000000000000",
                                   "800000ff 0100000000001d5a 00000006 0000000000000000"));
  EXPECT_EQ(to_hex(m.reply), native("00000000 18000000 00000000000000000000000000000000",
                                    "00000000 00000018 00000000000000000000000000000000"));
  // The header: words at their offsets, the two addresses, and nothing else.
  ASSERT_EQ(m.header.size(), 160u);
  for (const size_t address : {16u, 48u}) {
    EXPECT_NE(m.header.substr(address, 8), std::string(8, '\0'));
    m.header.replace(address, 8, 8, '\0');
  }
  std::string expected(160, '\0');
  const std::pair<size_t, uint32_t> words[] = {{0, 'Q'}, {8, 2}, {12, 24}, {44, 16}, {88, 60000}};
  for (const auto &[offset, value] : words)  // guard, subprotocol, lengths of request and response, timeout
    memcpy(&expected[offset], &value, sizeof value);
  EXPECT_EQ(to_hex(m.header), to_hex(expected));
  ASSERT_EQ(m.requests().size(), 1u);
  EXPECT_EQ(m.requests()[0].path, "/dev/bsg/fc_host3");
  EXPECT_EQ(m.requests()[0].command, 6u);
}

TEST_F(Mmm, AsksTheFirstPhysicalPortByName) {
  m.add_host({.number = 1, .foreign = true});
  m.add_host({.number = 2});
  m.add_host({.number = 10});
  ASSERT_EQ(get_vosk_management_version(), 1);
  EXPECT_EQ(m.requests().at(0).path, "/dev/bsg/fc_host10");
  EXPECT_TRUE(m.logged("fetch_management_version - found 3 SCSI host(s)"));
  EXPECT_TRUE(m.logged("mmm_sysfs_test_file - failed to open - /sys/class/scsi_host/host1/vosk_log_verbose"));
  EXPECT_TRUE(m.logged("fetch_management_version - using physcial port at host host10"));
  EXPECT_TRUE(
      m.logged("mmm_send_bsg_get_mgmt_rev - getting vosk managagement version from /dev/bsg/fc_host10"));

  m.set_text("/sys/class/scsi_host/host10/npiv_info", "NPIV Virtual (VPI 1)\n");
  m.set_text("/sys/class/scsi_host/host2/npiv_info", "NPIV Not Supported\n");
  ASSERT_EQ(get_vosk_management_version(), 1);
  EXPECT_EQ(m.requests().at(1).path, "/dev/bsg/fc_host2");
  EXPECT_TRUE(m.logged("fetch_management_version - host at host10 is not a physical port"));
}

TEST_F(Mmm, FailedQueries) {
  m.add_host({.number = 3});
  const std::string none = "fetch_management_version - did not find an vosk SCSI host";
  const std::string send = "mmm_send_bsg_get_mgmt_rev - ",
                    refused = send + "ioctl failed xfffffffb result x00000000";
  const std::string no_file =
      "mmm_sysfs_test_file - failed to open - /sys/class/scsi_host/host3/vosk_log_verbose";
  const std::string no_dir =
      "fetch_management_version - could not open directory /sys/class/scsi_host/host3/";
  const std::string no_text =
      "hcx_sysfs_read_str - Error did not find file npiv_info in /sys/class/scsi_host/host3/";
  const struct {
    sim::Verb verb;
    const char *path;
    int nth, error;
    std::string first, second;
  } cases[] = {{sim::Verb::list, "scsi_host", 1, EIO, none, ""},
               {sim::Verb::open, "/dev/bsg", 1, ENOENT, send + "failed to open - /dev/bsg/fc_host3", ""},
               {sim::Verb::ioctl, "", 1, EIO, refused, refused},
               {sim::Verb::open, "vosk_log_verbose", 1, ENOENT, no_file, none},
               {sim::Verb::open, "/sys/class/scsi_host/host3/", 3, EIO, no_dir, none},
               {sim::Verb::read, "npiv_info", 1, EIO, no_text, none}};
  libhcx_syslog_enable(LOG_ERROR);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.first);
    m.clear_records();
    m.fail({.verb = c.verb, .path = c.path, .nth = c.nth, .error = c.error});
    EXPECT_EQ(get_vosk_management_version(), 0);
    EXPECT_TRUE(m.fault_hit());
    m.clear_faults();
    EXPECT_EQ(m.syslog_lines(), c.second.empty() ? Lines{c.first} : (Lines{c.first, c.second}));
    EXPECT_EQ(m.open_fds(), 0u);
    EXPECT_TRUE(rows_off().empty());
    EXPECT_EQ(hcx::vosk_major, 0u);
    EXPECT_EQ(hcx::libhcx_major, 2u);
  }
  m.bsg().on_vendor(6, [](sim::BsgCall &call) { call.result = -EINVAL; });
  m.clear_records();
  EXPECT_EQ(get_vosk_management_version(), 0);
  EXPECT_EQ(m.syslog_lines(),
            (Lines{send + "bad result xffffffea", send + "ioctl failed x00000000 result xffffffea"}));
  m.remove_host(3);
  m.clear_records();
  EXPECT_EQ(get_vosk_management_version(), 0);
  EXPECT_EQ(m.syslog_lines(), Lines{none});
  EXPECT_TRUE(rows_off().empty());
}

// ---- The dump ----

TEST_F(Mmm, DumpLines) {
  m.clear_records();
  hcx_show_mmm(0);
  const Lines logged = m.syslog_lines();
  EXPECT_EQ(logged.size(), 10u + 71 + 4 + 15 + 14 + 2);
  testing::internal::CaptureStdout();
  hcx_show_mmm(1);
  const std::string printed = testing::internal::GetCapturedStdout();
  std::string joined;
  for (const std::string &line : logged)
    joined += line;
  EXPECT_EQ(printed, joined);
  size_t at = 0;
  for (const std::string line :
       {"hcx_show_mmm - Sysfs class files\n",
        "Index Directory                      \tFile         \t\t\tUse\tmin\tmax\thelp\n",
        " 46   /sys/class/fc_host            \ttx_frames                \tyes\t1.0\t9.9\tFrames sent (R)\n",
        "hcx_show_mmm - Sysfs device(s) files\n", "hcx_show_mmm - Netlink events\n",
        "Index\tcode\tevent\tUse\tmin\tmax\thelp\n",
        "  3\t0202\t0000\tyes\t1:0\t9:9     Netlink port online event\n",
        "hcx_show_mmm - BSG ioctl commands\n", "Index\tcode\t\tcommand\t\tUse\tmin\tmax\thelp\n",
        " 12\t800000ff\t0000000c\tyes\t2:0\t9:9     BSG vendor unique get fcp priority\n",
        "hcx_show_mmm - BSG devices\n"}) {
    const size_t found = printed.find(line, at);
    ASSERT_NE(found, std::string::npos) << line;
    EXPECT_TRUE(found == 0 || printed[found - 1] == '\n') << line;
    at = found + line.size();
  }
}

}  // namespace
