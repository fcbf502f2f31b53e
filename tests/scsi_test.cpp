// SPDX-License-Identifier: BSD-3-Clause
// SCSI and FCP pass-through: the SG_IO header and the CDBs byte for byte, what comes back, and the ways to a LUN's node.
#include <scsi/sg.h>
#include <signal.h>

#include "sim_scsi.h"
#include "transport_fixture.h"

namespace {

constexpr uint64_t kWwpn = 0x10000000c9a1b2c3;
constexpr uint64_t kTarget = 0x5006016000000001;
constexpr uint32_t kForever = 0xffffffff;

uint64_t image(std::initializer_list<uint8_t> bytes) {
  uint8_t all[8] = {};
  std::copy(bytes.begin(), bytes.end(), all);
  uint64_t lun;
  memcpy(&lun, all, 8);
  return lun;
}

class Scsi : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    m.vfs().put_text("/tmp/libhcx_syslog_enable", "4fff\n", 0644);
    host = &m.add_host({.number = 3, .wwpn = kWwpn});
    port = &host->add_rport({.wwpn = kTarget, .target_id = 7});
  }
  // The unit answers with this, whatever it is asked.
  void answer(sim::Lun &lun, sim::ScsiAnswer fixed) {
    sim::unit_of(lun).hook = [fixed](const std::string &, const std::string &, sim::ScsiAnswer &out, int &) {
      out = fixed;
      return true;
    };
  }
  sim::Lun &scan_lun() {
    sim::Lun &lun = port->add_lun({.lun = 5});
    scan();
    return lun;
  }
  sim::Request last() {
    const auto all = m.requests();
    return all.empty() ? sim::Request{} : all.back();
  }

  sim::Host *host = nullptr;
  sim::Rport *port = nullptr;
  HBA_WWN local = wwn(kWwpn), remote = wwn(kTarget), nobody = wwn(0x5006016000ffffff);
  uint64_t lun5 = image({0, 5});
  uint8_t data[4096] = {}, sense[300] = {};
  uint32_t data_size = sizeof data, sense_size = sizeof sense;
};
using Fcp = Scsi;

TEST_F(Scsi, HeaderAsTheKernelGetsIt) {
  sg_io_hdr seen = {};
  bool blocked = false;
  m.vfs().put_device("/dev/raw", 0600, [&](sim::OpenFile &file, unsigned long request, void *arg) {
    EXPECT_EQ(request, 0x2285ul);
    EXPECT_EQ(file.flags & O_ACCMODE, O_RDWR);
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    blocked = sigismember(&mask, SIGUSR1) == 1;
    memcpy(&seen, arg, sizeof seen);
    return 0;
  });
  uint8_t cdb[16] = {0x9e, 0x10};
  data_size = 32;
  for (const int direction : {-2, -3}) {
    sense_size = 300;
    ASSERT_EQ(
        hcx_send_scsi_cmd("/dev/raw", direction, 7000, cdb, sizeof cdb, data, &data_size, sense, &sense_size),
        0u);
    sg_io_hdr expected;
    memset(&expected, 0, sizeof expected);
    expected.interface_id = 'S';
    expected.dxfer_direction = direction;
    expected.cmd_len = 16;
    expected.mx_sb_len = 255;
    expected.dxfer_len = 32;
    expected.dxferp = data;
    expected.cmdp = cdb;
    expected.sbp = sense;
    expected.timeout = 7000;
    EXPECT_EQ(bytes_of(&seen, sizeof seen), bytes_of(&expected, sizeof expected));
    EXPECT_EQ(sense_size, 0u);
    EXPECT_TRUE(blocked);  // the event signal must not cut the wait short
  }
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGUSR1), 0);

  ASSERT_EQ(hcx_send_bsg_scsi_cmd("/dev/raw", -3, 1, cdb, 6, nullptr, nullptr, nullptr, nullptr), 0u);
  EXPECT_EQ(seen.dxfer_len, 0u);
  EXPECT_EQ(seen.mx_sb_len, 0);
}

TEST_F(Scsi, RefusedBeforeAnyNodeIsOpened) {
  uint8_t cdb[17] = {};
  m.vfs().put_device("/dev/raw", 0600);
  hcx_send_scsi_cmd("/dev/none", -3, 1, cdb, 6, data, &data_size, sense, &sense_size);
  const uint64_t opened = m.calls(sim::Verb::open);
  EXPECT_EQ(hcx_send_scsi_cmd("/dev/raw", -3, 1, cdb, 17, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("hcx_send_bsg_scsi_cmd - command size 17 > 16"));
  EXPECT_EQ(hcx_send_scsi_cmd(nullptr, -3, 1, cdb, 6, data, &data_size, sense, &sense_size), 3u);
  EXPECT_TRUE(m.logged("hcx_send_bsg_scsi_cmd - file name is NULL"));
  EXPECT_EQ(hcx_send_scsi_cmd("/dev/raw", -3, 1, nullptr, 6, data, &data_size, sense, &sense_size), 1u);
  EXPECT_EQ(hcx_send_scsi_cmd("/dev/raw", -3, 1, cdb, 6, nullptr, &data_size, sense, &sense_size), 1u);
  data_size = 65536;
  EXPECT_EQ(hcx_send_scsi_inq("/dev/raw", 0, 0, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("hcx_send_scsi_inq - data_size 65536 greater than 65535"));
  EXPECT_EQ(m.calls(sim::Verb::open), opened);
  data_size = sizeof data;
  EXPECT_EQ(hcx_send_scsi_cmd("/dev/none", -3, 1, cdb, 6, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("hcx_send_bsg_scsi_cmd - open failed for /dev/none"));
  EXPECT_EQ(data_size, sizeof data);
}

TEST_F(Scsi, CommandBlocks) {
  port->add_lun({.lun = 0, .blocks = 1 << 20});
  port->add_lun({.lun = 5, .blocks = 1 << 20});
  scan();
  const auto with = [&](auto call, auto... arguments) {
    return [=, this] { return call(arguments..., data, &data_size, sense, &sense_size); };
  };
  const struct {
    const char *what;
    std::function<uint32_t()> call;
    uint32_t size;
    std::string cdb;
    bool writes = false;
  } rows[] = {
      {"inquiry", with(SendScsiInquiry, 0, &remote, lun5, 0, 0), 96, std::string("\x12\0\0\0\x60\0", 6)},
      {"page", with(SendScsiInquiry, 0, &remote, lun5, 9, 0x183), 255, std::string("\x12\1\x83\0\xff\0", 6)},
      {"capacity", with(SendReadCapacity, 0, &remote, lun5), 8, std::string("\x25\0\0\0\0\0\0\0\0\0", 10)},
      {"luns", with(SendReportLUNs, 0, &remote), 0x400, std::string("\xa0\0\0\0\0\0\0\0\x4\0\0\0", 12)},
      {"read", with(SendScsiRead, 0, &remote, lun5, 0x01020304), 4096,
       std::string("\x28\0\1\2\3\4\0\0\x8\0", 10)},
      {"read, not whole blocks", with(SendScsiRead, 0, &remote, lun5, 1), 1023,
       std::string("\x28\0\0\0\0\1\0\0\1\0", 10)},
      {"write", with(SendScsiWrite, 0, &remote, lun5, 0xfffffffe), 1024,
       std::string("\x2a\0\xff\xff\xff\xfe\0\0\2\0", 10), true},
      {"bare", with(SendScsiCDB, 0, &remote, lun5, 0x100), 64, std::string(16, '\0')},
      {"inquiry by name", with(HCX_SendScsiInquiryByWWN, 0, &local, &remote, lun5, 1, 0x80), 64,
       std::string("\x12\1\x80\0\x40\0", 6)},
      {"capacity by name", with(HCX_SendReadCapacityByWWN, 9, &local, &remote, 5), 8,
       std::string("\x25\0\0\0\0\0\0\0\0\0", 10)},
      {"luns by name", with(HCX_SendReportLUNsByWWN, 9, &local, &remote), 64,
       std::string("\xa0\0\0\0\0\0\0\0\0\x40\0\0", 12)},
  };
  for (const auto &row : rows) {
    data_size = row.size;
    sense_size = sizeof sense;
    m.clear_records();
    EXPECT_EQ(row.call(), 0u) << row.what;
    ASSERT_EQ(m.requests().size(), 1u) << row.what;
    EXPECT_EQ(last().header, row.cdb) << row.what;
    EXPECT_EQ(last().timeout, kForever) << row.what;
    EXPECT_EQ(last().path, row.cdb[0] == '\xa0' ? "/dev/sg0" : "/dev/sg1") << row.what;
    EXPECT_EQ(last().data_out.size(), row.writes ? row.size : 0) << row.what;
    EXPECT_EQ(last().data_in_size, row.writes ? 0 : row.size) << row.what;
  }
}

TEST_F(Scsi, AnswersComeBackWithTheirSizes) {
  port->add_lun({.lun = 5, .blocks = 0x12345, .vendor = "QUORVA", .model = "RAMSTORE"});
  scan();
  ASSERT_EQ(SendScsiInquiry(0, &remote, lun5, 0, 0, data, &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(data_size, 36u);
  EXPECT_EQ(sense_size, 0u);
  EXPECT_EQ(bytes_of(data + 8, 16), "QUORVA  RAMSTORE");
  data_size = 8;
  ASSERT_EQ(SendReadCapacity(0, &remote, lun5, data, &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(bytes_of(data, 8), std::string("\0\1\x23\x44\0\0\2\0", 8));

  // What is written is read again; a check condition is a success with sense data.
  memset(data, 'w', 1024);
  data_size = 1024;
  ASSERT_EQ(SendScsiWrite(0, &remote, lun5, 3, data, &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(data_size, 1024u);
  memset(data, 0, sizeof data);
  data_size = 1536;
  ASSERT_EQ(SendScsiRead(0, &remote, lun5, 2, data, &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(data_size, 1536u);
  EXPECT_EQ(bytes_of(data, 15), "3:0:7:5 block 2");
  EXPECT_EQ(bytes_of(data + 512, 1024), std::string(1024, 'w'));
  data_size = 512;
  sense_size = sizeof sense;
  ASSERT_EQ(SendScsiRead(0, &remote, lun5, 0x12345, data, &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(data_size, 0u);
  ASSERT_EQ(sense_size, 18u);
  EXPECT_EQ(bytes_of(sense, 3), std::string("\x70\0\5", 3));
  EXPECT_EQ(sense[12], 0x21);
  EXPECT_TRUE(m.logged("hcx_send_bsg_scsi_cmd - ioctl ok, sense_size 18 data_size 0"));
}

TEST_F(Scsi, SizesStayWithinTheBuffers) {
  sim::Lun &lun = scan_lun();
  const struct {
    int residual_extra;
    uint32_t moved;
  } rows[] = {{0, 60}, {4, 56}, {1000, 0}, {-4, 64}, {-1000, 64}};
  for (const auto &row : rows) {
    sim::ScsiAnswer sixty = {.data = std::string(60, 'd'), .sense = {}};
    sixty.residual_extra = row.residual_extra;
    answer(lun, sixty);
    data_size = 64;
    EXPECT_EQ(SendScsiInquiry(0, &remote, lun5, 0, 0, data, &data_size, nullptr, nullptr), 0u);
    EXPECT_EQ(data_size, row.moved) << row.residual_extra;
  }
  answer(lun,
         {.status = 2, .host_status = 0, .driver_status = 8, .data = {}, .sense = std::string(252, 's')});
  sense_size = 20;
  memset(sense, 0, sizeof sense);
  EXPECT_EQ(SendScsiInquiry(0, &remote, lun5, 0, 0, data, &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(sense_size, 20u);
  EXPECT_EQ(sense[20], 0);
  sense_size = 32;
  EXPECT_EQ(SendScsiInquiry(0, &remote, lun5, 0, 0, nullptr, nullptr, nullptr, &sense_size), 0u);
  EXPECT_EQ(sense_size, 0u);
}

TEST_F(Scsi, TransferLimitIs65535Blocks) {
  sim::Lun &lun = scan_lun();
  answer(lun, {});
  std::vector<uint8_t> large(65536 * 512);
  data_size = 65535 * 512;
  EXPECT_EQ(SendScsiRead(0, &remote, lun5, 0, large.data(), &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(last().header.substr(7, 2), "\xff\xff");
  m.clear_records();
  data_size = 65536 * 512;
  EXPECT_EQ(SendScsiWrite(0, &remote, lun5, 0, large.data(), &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("SendScsiWrite - data_size 33554432 greater than 33553920"));
  EXPECT_TRUE(m.requests().empty());
}

TEST_F(Scsi, WhereTheCommandGoes) {
  port->add_lun({.lun = 1, .generic = false});
  port->add_lun({.lun = 2, .kind = sim::LunKind::tape, .generic = false});
  port->add_lun({.lun = 0x4005});
  scan();
  data_size = 36;
  EXPECT_EQ(SendScsiInquiry(0, &remote, image({0, 1}), 0, 0, data, &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(last().path, "/dev/sda");
  EXPECT_EQ(SendScsiInquiry(0, &remote, image({0, 2}), 0, 0, data, &data_size, sense, &sense_size), 3u);
  EXPECT_EQ(SendScsiInquiry(0, &remote, image({0x40, 5}), 0, 0, data, &data_size, sense, &sense_size), 0u);
  EXPECT_EQ(last().path, "/dev/sg0");
  hcx_lun *lun = hcx_search_lun(0, &remote, image({0, 1}));
  ASSERT_NE(lun, nullptr);
  EXPECT_EQ(lun->id, 1u);
  EXPECT_STREQ(hcx_lun_to_file_name(lun), "/dev/sda");
  EXPECT_EQ(hcx_lun_to_file_name(nullptr), nullptr);

  // 00 09 is a LUN that is not there; 5 alone, the image of LUN 0x500..., too.
  EXPECT_EQ(SendReadCapacity(0, &remote, image({0, 9}), data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("hcx_search_lun - no lun on board 0 rwwpn x5006016000000001"));
  EXPECT_TRUE(
      m.logged("SendReadCapacity - lun_id 2533274790395904 not found on board 0 wwpn x5006016000000001"));
  EXPECT_EQ(SendScsiRead(0, &nobody, image({0, 1}), 0, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("hcx_search_lun - no port on board 0 rwwpn x5006016000ffffff"));
  EXPECT_EQ(SendScsiCDB(5, &remote, image({0, 1}), 0, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("hcx_search_lun - no host on board 5"));
  EXPECT_EQ(SendScsiInquiry(0, nullptr, 0, 0, 0, data, &data_size, sense, &sense_size), 1u);
  EXPECT_EQ(hcx_search_lun(0, nullptr, 0), nullptr);

  EXPECT_EQ(HCX_SendReadCapacityByWWN(0, &nobody, &remote, 1, data, &data_size, sense, &sense_size), 4u);
  EXPECT_TRUE(m.logged("HCX_SendReadCapacityByWWN - no host on lwwpn x5006016000ffffff"));
  EXPECT_EQ(HCX_SendScsiInquiryByWWN(0, &local, &nobody, 1, 0, 0, data, &data_size, sense, &sense_size), 4u);
  EXPECT_TRUE(m.logged("HCX_SendScsiInquiryByWWN - no target_is on host_id 3 rwwpn x5006016000ffffff"));
  EXPECT_EQ(HCX_SendReadCapacityByWWN(0, &local, &remote, 9, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("HCX_SendReadCapacityByWWN - get lun file name failed on host_id 3 target_id 7"));
  EXPECT_EQ(HCX_SendReadCapacityByWWN(0, nullptr, &remote, 9, data, &data_size, sense, &sense_size), 1u);
}

TEST_F(Scsi, ReportLunsIsMadeUpWithoutLunZero) {
  for (const uint64_t lun : {2, 10, 300})
    port->add_lun({.lun = lun});
  scan();
  const std::string header3("\0\0\0\x18\0\0\0\0", 8), two("\0\2\0\0\0\0\0\0", 8), ten("\0\xa\0\0\0\0\0\0", 8),
      many("\1\x2c\0\0\0\0\0\0", 8);
  const struct {
    uint32_t room;
    uint32_t board_result, board_size;
    std::string board_data;
    uint32_t name_result, name_size;
    std::string name_data;
  } rows[] = {
      {7, 1, 7, "", 1, 7, ""},
      {8, 0, 0, "", 0, 8, std::string(8, '\0')},
      {16, 0, 16, std::string("\0\0\0\x8\0\0\0\0", 8) + two, 0, 16,
       std::string("\0\0\0\x8\0\0\0\0", 8) + ten},
      {31, 0, 24, std::string("\0\0\0\x10\0\0\0\0", 8) + two + ten, 0, 24,
       std::string("\0\0\0\x10\0\0\0\0", 8) + ten + two},
      {64, 0, 32, header3 + two + ten + many, 0, 32,
       header3 + ten + two + many},  // by name: in the names' order
  };
  for (const auto &row : rows) {
    memset(data, 0xee, sizeof data);
    data_size = row.room;
    sense_size = 9;
    EXPECT_EQ(SendReportLUNs(0, &remote, data, &data_size, sense, &sense_size), row.board_result) << row.room;
    EXPECT_EQ(data_size, row.board_size) << row.room;
    EXPECT_EQ(bytes_of(data, row.board_data.size()), row.board_data) << row.room;
    EXPECT_EQ(data[row.room], 0xee);
    memset(data, 0xee, sizeof data);
    data_size = row.room;
    EXPECT_EQ(HCX_SendReportLUNsByWWN(0, &local, &remote, data, &data_size, sense, &sense_size),
              row.name_result);
    EXPECT_EQ(data_size, row.name_size) << row.room;
    EXPECT_EQ(bytes_of(data, row.name_data.size()), row.name_data) << row.room;
    EXPECT_EQ(data[row.room], 0xee);
    EXPECT_EQ(sense_size, row.room < 8 ? 9u : 0u);
  }
  EXPECT_TRUE(m.requests().empty());
  EXPECT_EQ(SendReportLUNs(0, &nobody, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("HCX_SendReportLUNsByWWN - data_size 7 less than 8"));
  EXPECT_TRUE(m.logged("SendReportLUNs - no port on board 0 wwpn x5006016000ffffff"));
  EXPECT_EQ(SendReportLUNs(4, &remote, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("SendReportLUNs - no host on board 4"));
  EXPECT_TRUE(
      m.logged("HCX_SendReportLUNsByWWN - get lun file name failed on host_id 3 target_id 7 constructing our "
               "own report luns reponse"));
}

TEST_F(Scsi, AListingThatFailsIsNoEmptyTarget) {
  scan_lun();
  m.fail({.verb = sim::Verb::list, .path = "/sys/class/scsi_device", .persistent = true, .error = EMFILE});
  memset(data, 0xee, sizeof data);
  EXPECT_EQ(HCX_SendReportLUNsByWWN(0, &local, &remote, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("HCX_SendReportLUNsByWWN - cannot list /sys/class/scsi_device"));
  EXPECT_EQ(data_size, sizeof data);
  EXPECT_EQ(data[0], 0xee);
}

TEST_F(Scsi, ALongLinkLeadsToItsOwnDevice) {
  sim::Lun &lun = scan_lun();
  const auto lead_to = [&](const std::string &text) {
    m.vfs().remove(lun.device_dir() + "generic");
    m.vfs().put_link(lun.device_dir() + "generic", text);
    data_size = 64;
    return HCX_SendScsiInquiryByWWN(0, &local, &remote, lun5, 0, 0, data, &data_size, sense, &sense_size);
  };
  // Cut at 255 characters, the first would end in "sg1", which is there, and be sent a command that is not for it.
  m.vfs().put_device("/dev/sg1", 0600);
  const std::string far = std::string(251, 'd') + "/sg12";
  ASSERT_EQ(far.substr(0, 255).substr(251), "/sg1");
  expect_told(lead_to(far), 1, "hcx_send_bsg_scsi_cmd - open failed for /dev/sg12");
  // Names that do not fit behind "/dev" are no device's.
  for (const size_t length : {250, 251, 252, 253, 255})
    EXPECT_EQ(lead_to("x/" + std::string(length, 'n')), 1u);
  EXPECT_TRUE(m.logged("open failed for /dev/" + std::string(250, 'n')));
  EXPECT_TRUE(m.logged("HCX_SendScsiInquiryByWWN - get lun file name failed on host_id 3 target_id 7"));
  EXPECT_TRUE(m.requests().empty());
}

TEST_F(Scsi, ADriverThatFailsIsTold) {
  scan_lun();
  m.fail({.verb = sim::Verb::ioctl, .persistent = true, .error = ENXIO});
  EXPECT_EQ(SendScsiInquiry(0, &remote, lun5, 0, 0, data, &data_size, sense, &sense_size), 1u);
  EXPECT_TRUE(m.logged("hcx_send_bsg_scsi_cmd - ioctl failed driver_status x00000000"));
}

// ---- FCP ----

// An FCP_CMND IU for LUN 5.
std::string unit(uint8_t flags, const std::string &cdb, uint32_t length, uint8_t management = 0) {
  std::string iu("\0\5\0\0\0\0\0\0\0\0", 10);
  iu += static_cast<char>(management);
  iu += static_cast<char>(flags);
  std::string block = cdb;
  block.resize(16);
  iu += block;
  for (int shift = 24; shift >= 0; shift -= 8)
    iu += static_cast<char>(length >> shift);
  return iu;
}

TEST_F(Fcp, CommandGoesOutAndResponseComesBack) {
  sim::Lun &lun = scan_lun();
  const std::string read10("\x28\0\0\0\0\1\0\0\1\0", 10), write10("\x2a\0\0\0\0\1\0\0\1\0", 10);
  const auto gives = [](size_t size) { return sim::ScsiAnswer{.data = std::string(size, 'r'), .sense = {}}; };
  sim::ScsiAnswer check = gives(0), busy = gives(16), overrun = gives(16);
  check.status = 2;
  check.driver_status = 8;
  check.sense = std::string("\x70\0\2\0", 4);
  busy.status = 8;
  overrun.residual_extra = -8;
  const struct {
    const char *what;
    std::string iu;
    uint32_t timeout;
    sim::ScsiAnswer answer;
    uint32_t cdb_size, milliseconds, moved;
    const char *response;  // as hexadecimal digits
  } rows[] = {
      {"read", unit(2, read10, 512), 0, gives(512), 10, kForever, 512,
       "00000000 00000000 00000000 00000000 00000000 00000000"},
      {"short read", unit(2, read10, 512), 30, gives(500), 10, 30000, 500,
       "00000000 00000000 00000800 0000000c 00000000 00000000"},
      {"write", unit(1, write10, 512), 4294968, gives(0), 10, kForever, 512,
       "00000000 00000000 00000000 00000000 00000000 00000000"},
      {"check condition", unit(0, "\x35", 0), 0, check, 10, kForever, 0,
       "00000000 00000000 00000202 00000000 00000004 00000000 70000200"},
      {"busy", unit(2, "\x88", 16), 0, busy, 16, kForever, 16,
       "00000000 00000000 00000008 00000000 00000000 00000000"},
      {"overrun", unit(2, "\xa0", 16), 0, overrun, 12, kForever, 16,
       "00000000 00000000 00000400 00000008 00000000 00000000"},
  };
  for (const auto &row : rows) {
    answer(lun, row.answer);
    m.clear_records();
    uint8_t response[64];
    uint32_t response_size = sizeof response;
    data_size = 1024;
    std::string iu = row.iu;
    ASSERT_EQ(SendFcpCmdEx(0, &remote, iu.data(), static_cast<uint32_t>(iu.size()), data, &data_size,
                           response, &response_size, row.timeout),
              0u)
        << row.what;
    EXPECT_EQ(last().header.size(), row.cdb_size) << row.what;
    EXPECT_EQ(last().header, row.iu.substr(12, row.cdb_size)) << row.what;
    EXPECT_EQ(last().timeout, row.milliseconds) << row.what;
    EXPECT_EQ(data_size, row.moved) << row.what;
    EXPECT_EQ(to_hex(bytes_of(response, response_size)), to_hex(hex(row.response))) << row.what;
  }
  uint8_t response[26];
  uint32_t response_size = sizeof response;
  answer(lun, {.status = 2, .driver_status = 8, .data = {}, .sense = std::string(18, 's')});
  std::string iu = unit(0, std::string(6, '\0'), 0);
  ASSERT_EQ(HCX_SendFcpCmd(0, &local, &remote, iu.data(), 32, nullptr, nullptr, response, &response_size),
            0u);
  EXPECT_EQ(response_size, 26u);  // sense is cut to the room
  EXPECT_EQ(response[19], 2);
}

TEST_F(Fcp, WhatCannotBeCarriedIsRefused) {
  sim::Lun &lun = scan_lun();
  const std::string read10("\x28\0\0\0\0\1\0\0\1\0", 10);
  const struct {
    const char *what;
    std::string iu;
    uint32_t room, response_room, result;
  } rows[] = {
      {"short", unit(2, read10, 512).substr(0, 31), 512, 64, 4},
      {"additional bytes", unit(2 | 4 << 2, read10, 512) + std::string(16, '\0'), 512, 64, 2},
      {"abort task set", unit(0, read10, 0, 0x02), 0, 64, 2},
      {"both directions", unit(3, read10, 512), 512, 64, 2},
      {"direction without length", unit(2, read10, 0), 512, 64, 4},
      {"length without direction", unit(0, read10, 512), 512, 64, 4},
      {"more than the buffer", unit(1, read10, 513), 512, 64, 4},
      {"no room for a response", unit(0, read10, 0), 0, 23, 4},
  };
  uint8_t response[64];
  for (const auto &row : rows) {
    std::string iu = row.iu;
    uint32_t response_size = row.response_room;
    data_size = row.room;
    const auto size = static_cast<uint32_t>(iu.size());
    EXPECT_EQ(SendFcpCmd(0, &remote, iu.data(), size, data, &data_size, response, &response_size), row.result)
        << row.what;
    EXPECT_EQ(HCX_SendFcpCmd(0, &local, &remote, iu.data(), size, data, &data_size, response, &response_size),
              row.result)
        << row.what;
  }
  EXPECT_TRUE(m.requests().empty());
  std::string iu = unit(2, read10, 512);
  uint32_t response_size = 64;
  data_size = 512;
  EXPECT_EQ(SendFcpCmd(0, &remote, nullptr, 32, data, &data_size, response, &response_size), 4u);
  EXPECT_EQ(SendFcpCmd(0, &remote, iu.data(), 32, nullptr, &data_size, response, &response_size), 4u);
  EXPECT_EQ(SendFcpCmd(0, &nobody, iu.data(), 32, data, &data_size, response, &response_size), 1u);
  EXPECT_EQ(HCX_SendFcpCmd(0, &nobody, &remote, iu.data(), 32, data, &data_size, response, &response_size),
            4u);
  answer(lun, {.host_status = 1, .data = {}, .sense = {}});
  EXPECT_EQ(SendFcpCmd(0, &remote, iu.data(), 32, data, &data_size, response, &response_size), 1u);
  EXPECT_EQ(data_size, 0u);
  EXPECT_EQ(response_size, 0u);
}

}  // namespace
