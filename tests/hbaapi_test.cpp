// SPDX-License-Identifier: BSD-3-Clause
// Adapter and port attributes against hand-made records, and statistics with their reset.
#include <thread>

#include "alloc_fault.h"
#include "board_fixture.h"

namespace {

constexpr uint64_t kWwpn = 0x10000000c9a1b2c3;

class Attributes : public BoardTest {
 protected:
  sim::Host &add_board(sim::HostSpec spec = {}) {
    if (spec.number < 0) spec.number = 3;
    if (!spec.wwpn) spec.wwpn = kWwpn;
    return m.add_host(std::move(spec));
  }
};
using Statistics = Attributes;

TEST_F(Attributes, AdapterRecordIsReadFieldByField) {
  sim::Host &host = add_board({.wwnn = 0x20000000c9a1b2c3, .serial = "QV1", .hardware = "31004549"});
  host.set_scsi("fwrev", "10.4.255.23, sli-4:2");
  host.set_scsi("modelname", "QF16002");
  host.set_scsi("modeldesc", "Quorva QF16002 adapter");
  host.set_scsi("option_rom_version", "5.11a2");
  host.set_fc("symbolic_name", "Quorva QF16002 FV10.4");
  scan();
  HBA_ADAPTERATTRIBUTES expected = {};
  strcpy(expected.Manufacturer, "Quorva Corporation");
  strcpy(expected.SerialNumber, "QV1");
  strcpy(expected.Model, "QF16002");
  strcpy(expected.ModelDescription, "Quorva QF16002 adapter");
  expected.NodeWWN = wwn(0x20000000c9a1b2c3);
  strcpy(expected.NodeSymbolicName, "Quorva QF16002 FV10.4");
  strcpy(expected.HardwareVersion, "31004549");
  strcpy(expected.DriverVersion, "8.2.0.141p");
  strcpy(expected.OptionROMVersion, "5.11a2");
  strcpy(expected.FirmwareVersion, "10.4.255.23");
  expected.VendorSpecificID = 0x1d5a;
  expected.NumberOfPorts = 1;
  strcpy(expected.DriverName, "vosk");
  HBA_ADAPTERATTRIBUTES attr;
  memset(&attr, 0xee, sizeof attr);
  ASSERT_EQ(GetAdapterAttributes(0, &attr), 0u);
  EXPECT_EQ(bytes_of(&attr, sizeof attr), bytes_of(&expected, sizeof expected));
}

TEST_F(Attributes, DriverVersionBeginsAtTheFirstDigit) {
  sim::Host &host = add_board();
  scan();
  const struct {
    const char *text, *version;
  } rows[] = {{"Quorva vosk driver 8.2.0 and more", "8.2.0"},
              {"4.2.17 without a word before", "4.2.17"},
              {"no digit at all", ""},
              {"", ""}};
  for (const auto &row : rows) {
    host.set_scsi("vosk_drvr_version", row.text);
    HBA_ADAPTERATTRIBUTES attr;
    ASSERT_EQ(GetAdapterAttributes(0, &attr), 0u);
    EXPECT_STREQ(attr.DriverVersion, row.version) << row.text;
  }
  host.set_scsi("vosk_drvr_version", std::string(400, '7'));  // longer than any field
  HBA_ADAPTERATTRIBUTES attr;
  ASSERT_EQ(GetAdapterAttributes(0, &attr), 0u);
  EXPECT_EQ(std::string(attr.DriverVersion), std::string(254, '7'));
}

TEST_F(Attributes, AdapterIsUnavailableWithoutHostOrPciDevice) {
  add_board();
  scan();
  HBA_ADAPTERATTRIBUTES attr;
  memset(&attr, 0xee, sizeof attr);
  const HBA_ADAPTERATTRIBUTES before = attr;
  expect_told(GetAdapterAttributes(7, &attr), 12, "GetAdapterAttributes - no host on board 7");
  free(hcx_host_list->pci_dev);
  hcx_host_list->pci_dev = nullptr;
  EXPECT_EQ(GetAdapterAttributes(0, &attr), 12u);
  EXPECT_EQ(bytes_of(&attr, sizeof attr), bytes_of(&before, sizeof before));
  EXPECT_EQ(GetAdapterAttributes(0, nullptr), 4u);
}

HBA_OSDN osdn_of(const HBA_PORTATTRIBUTES &attr) {
  HBA_OSDN record;
  memcpy(&record, attr.OSDeviceName, sizeof record);
  return record;
}

TEST_F(Attributes, LocalPortRecord) {
  sim::Host &host = add_board({.wwnn = 0x20000000c9a1b2c3,
                               .fabric = 0x100000051e0a1001,
                               .port_id = 0x010200,
                               .serial = "SN-0123456789",
                               .unique_id = 9});
  for (int i = 0; i < 3; i++)
    host.add_rport({});
  host.set_fc("supported_speeds", "4 Gbit, 8 Gbit, 16 Gbit");
  host.set_fc("speed", "8 Gbit");
  host.set_fc("symbolic_name", "first light");
  host.set_fc("supported_classes", "Class 2, Class 3");
  host.set_fc("supported_fc4s", "0x00 0x00 0x01 0x00 0x00 0x00 0x00 0x01 0xff");
  host.set_fc("active_fc4s", "0x00 0x00 0x01 nonsense 0x01");
  scan();
  HBA_PORTATTRIBUTES attr;
  memset(&attr, 0xee, sizeof attr);
  ASSERT_EQ(GetAdapterPortAttributes(0, 0, &attr), 0u);
  HBA_PORTATTRIBUTES expected = {};
  expected.NodeWWN = wwn(0x20000000c9a1b2c3);
  expected.PortWWN = wwn(kWwpn);
  expected.PortFcId = 0x010200;
  expected.PortType = 5;
  expected.PortState = 2;
  expected.PortSupportedClassofService = 0x0c;
  expected.PortSupportedFc4Types[2] = 1;
  expected.PortSupportedFc4Types[7] = 1;
  expected.PortSupportedFc4Types[8] = 0xff;
  expected.PortActiveFc4Types[2] = 1;
  strcpy(expected.PortSymbolicName, "first light");
  expected.PortSupportedSpeed = 0x38;
  expected.PortSpeed = 0x10;
  expected.PortMaxFrameSize = 2048;
  expected.FabricName = wwn(0x100000051e0a1001);
  expected.NumberofDiscoveredPorts = 3;
  memcpy(expected.OSDeviceName, attr.OSDeviceName, sizeof expected.OSDeviceName);
  EXPECT_EQ(bytes_of(&attr, sizeof attr), bytes_of(&expected, sizeof expected));

  // driver name, instance 9, target 0, LUN 0, SCSI host 3, flags, length 13, serial number
  std::string name = std::string("vosk").append(28, '\0');
  for (const uint32_t word : {9u, 0u, 0u, 3u}) {
    const bool big = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
    for (int i = 0; i < 4; i++)
      name += static_cast<char>(word >> 8 * (big ? 3 - i : i));
  }
  name += std::string("\0\x0dSN-0123456789", 15);
  name.resize(256);
  EXPECT_EQ(bytes_of(attr.OSDeviceName, 256), name);

  host.set_scsi("serialnum", std::string(80, 'x'));
  ASSERT_EQ(GetAdapterPortAttributes(0, 0, &attr), 0u);
  EXPECT_EQ(osdn_of(attr).sizeSN, 64);
  EXPECT_EQ(bytes_of(osdn_of(attr).InquirySN, 64), std::string(64, 'x'));
}

TEST_F(Attributes, WordsBecomeNumbers) {
  sim::Host &host = add_board();
  scan();
  using Field = uint32_t HBA_PORTATTRIBUTES::*;
  const Field type = &HBA_PORTATTRIBUTES::PortType, state = &HBA_PORTATTRIBUTES::PortState,
              speeds = &HBA_PORTATTRIBUTES::PortSupportedSpeed, speed = &HBA_PORTATTRIBUTES::PortSpeed,
              classes = &HBA_PORTATTRIBUTES::PortSupportedClassofService,
              frame = &HBA_PORTATTRIBUTES::PortMaxFrameSize, id = &HBA_PORTATTRIBUTES::PortFcId;
  const struct {
    const char *file, *text;
    Field field;
    uint32_t value;
  } rows[] = {
      {"port_type", "NLPort (fabric via loop)", type, 6},
      {"port_state", "Linkdown", state, 6},
      {"supported_speeds", "10 Gbit", speeds, 0x4},
      {"supported_speeds", "16 Gbit, 32 Gbit", speeds, 0x20},
      {"speed", "10 Gbit", speed, 4},
      {"speed", "Unknown", speed, 0},
      {"speed", "128 Gbit", speed, 0},
      {"supported_classes", "Class 3, Class 9", classes, 8},
      {"maxframe_size", "1024 bytes", frame, 1024},
      {"port_id", "0x1", id, 1},
      {"port_id", "10", id, 0},
  };
  for (const auto &row : rows) {
    const std::string before = m.vfs().text(host.fc_dir() + row.file);
    host.set_fc(row.file, row.text);
    HBA_PORTATTRIBUTES attr;
    ASSERT_EQ(GetAdapterPortAttributes(0, 0, &attr), 0u) << row.text;
    EXPECT_EQ(attr.*row.field, row.value) << row.file << " " << row.text;
    m.set_text(host.fc_dir() + row.file, before);
  }
}

TEST_F(Attributes, APortWhoseStateSaysNothingIsStale) {
  sim::Host &host = add_board();
  scan();
  HBA_PORTATTRIBUTES attr;
  memset(&attr, 0xee, sizeof attr);
  const HBA_PORTATTRIBUTES before = attr;
  for (const char *text : {"", "N", "Not", "Not Present"}) {
    host.set_fc("port_state", text);
    EXPECT_EQ(GetAdapterPortAttributes(0, 0, &attr), 8u) << text;
    EXPECT_EQ(bytes_of(&attr, sizeof attr), bytes_of(&before, sizeof before)) << text;
  }
  EXPECT_TRUE(
      m.logged("hcx_sysfs_read_port - Expected Not Present but got Not on /sys/class/fc_host/host3/"));
  m.vfs().remove("/sys/class/fc_host/host3/port_state");
  EXPECT_EQ(GetAdapterPortAttributes(0, 0, &attr), 8u);
  EXPECT_TRUE(m.logged("Expected Not Present but got  on /sys/class/fc_host/host3/"));
  m.vfs().remove("/sys/class/fc_host/host3");
  EXPECT_EQ(GetAdapterPortAttributes(0, 0, &attr), 8u);
  EXPECT_TRUE(m.logged("hcx_sysfs_read_port - stale data on /sys/class/fc_host/host3/"));
}

TEST_F(Attributes, OneMissingAttributeHidesNothingElse) {
  sim::Host &host = add_board();
  host.add_rport({});
  scan();
  HBA_PORTATTRIBUTES whole;
  ASSERT_EQ(GetAdapterPortAttributes(0, 0, &whole), 0u);
  const struct {
    const char *file;
    size_t offset, size;
  } rows[] = {
      {"node_name", 0, 8},          {"port_id", 16, 4},           {"port_type", 20, 4},
      {"supported_classes", 28, 4}, {"supported_fc4s", 32, 32},   {"active_fc4s", 64, 32},
      {"symbolic_name", 96, 256},   {"supported_speeds", 608, 4}, {"speed", 612, 4},
      {"maxframe_size", 616, 4},    {"fabric_name", 620, 8},
  };
  for (const auto &row : rows) {
    m.fail({.verb = sim::Verb::open,
            .path = std::string("host3/") + row.file,
            .persistent = true,
            .error = EACCES});
    HBA_PORTATTRIBUTES attr;
    ASSERT_EQ(GetAdapterPortAttributes(0, 0, &attr), 0u) << row.file;
    m.clear_faults();
    HBA_PORTATTRIBUTES expected = whole;
    memset(reinterpret_cast<char *>(&expected) + row.offset, 0, row.size);
    EXPECT_EQ(bytes_of(&attr, sizeof attr), bytes_of(&expected, sizeof expected)) << row.file;
  }
}

TEST_F(Attributes, RemotePortsByPositionAndName) {
  sim::Host &host = add_board({.port_id = 0x010200});
  host.add_rport(
      {.wwpn = 0x5006016000000001, .wwnn = 0x5006016080000001, .port_id = 0x010300, .target_id = 4});
  host.add_rport({.wwpn = 0x5006016000000002, .port_id = 0x010400, .roles = "FCP Initiator"});
  scan();
  host.set_fc("port_type", "NLPort (fabric via loop)");
  HBA_PORTATTRIBUTES attr;
  ASSERT_EQ(GetPortAttributesByIndex(0, 0, 0, &attr), 0u);
  EXPECT_EQ(number(attr.PortWWN), 0x5006016000000001u);
  EXPECT_EQ(number(attr.NodeWWN), 0x5006016080000001u);
  EXPECT_EQ(attr.PortFcId, 0x010300u);
  EXPECT_EQ(attr.PortType, 6u);  // the adapter's
  EXPECT_EQ(attr.NumberofDiscoveredPorts, 0u);
  EXPECT_EQ(osdn_of(attr).target, 4u);
  EXPECT_EQ(osdn_of(attr).sizeSN, 0);
  ASSERT_EQ(GetDiscoveredPortAttributes(0, 0, 1, &attr), 0u);
  EXPECT_EQ(attr.PortFcId, 0x010400u);
  EXPECT_EQ(osdn_of(attr).target, 0xffffffffu);
  ASSERT_EQ(GetPortAttributesByWWN(0, wwn(0x5006016000000002), &attr), 0u);
  EXPECT_EQ(attr.PortFcId, 0x010400u);

  EXPECT_EQ(GetPortAttributesByIndex(0, 0, 2, &attr), 1u);
  EXPECT_TRUE(m.logged("GetPortAttributesByIndex - no port on board 0 port_idx 2"));
  EXPECT_EQ(GetDiscoveredPortAttributes(0, 0, 2, &attr), 12u);
  EXPECT_EQ(GetPortAttributesByWWN(0, wwn(kWwpn), &attr), 8u);  // its own name is no remote port's
  EXPECT_TRUE(m.logged("GetPortAttributesByWWN - no port on board 0"));

  // A port that is not there now comes back later.
  host.rport(0)->set_state("Not Present");
  ASSERT_EQ(GetPortAttributesByIndex(0, 0, 0, &attr), 0u);
  EXPECT_EQ(attr.PortFcId, 0x010400u);
  host.rport(0)->set_state("Online");
  ASSERT_EQ(GetPortAttributesByIndex(0, 0, 0, &attr), 0u);
  EXPECT_EQ(attr.PortFcId, 0x010300u);
}

TEST_F(Attributes, RefusalsByCall) {
  add_board();
  scan();
  HBA_PORTATTRIBUTES attr;
  const uint64_t calls = m.total_calls();
  EXPECT_EQ(GetAdapterPortAttributes(9, 1, &attr), 1u);  // the channel is looked at first
  EXPECT_EQ(GetDiscoveredPortAttributes(0, 3, 0, &attr), 1u);
  EXPECT_EQ(GetPortAttributesByIndex(0, 2, 0, &attr), 1u);
  EXPECT_TRUE(m.logged("GetPortAttributesByIndex - board 0 chan 2 not supported"));
  EXPECT_LE(m.total_calls() - calls, 16u);  // log lines only
  const std::vector<uint32_t> nobody = {GetAdapterPortAttributes(9, 0, &attr),
                                        GetPortAttributesByIndex(9, 0, 0, &attr),
                                        GetDiscoveredPortAttributes(9, 0, 0, &attr), RefreshInformation(9)};
  EXPECT_EQ(nobody, std::vector<uint32_t>(4, 12));
  EXPECT_EQ(GetPortAttributesByWWN(9, wwn(1), &attr), 8u);
  const std::vector<uint32_t> nothing = {GetAdapterPortAttributes(0, 0, nullptr),
                                         GetPortAttributesByWWN(0, wwn(1), nullptr),
                                         hcx_sysfs_read_port(nullptr, &attr)};
  EXPECT_EQ(nothing, std::vector<uint32_t>(3, 4));
}

TEST_F(Attributes, OlderTreesShowTheSamePorts) {
  for (const int generation : {1, 0}) {
    m.generation(generation);
    sim::Host &host = m.add_host({.number = 3, .wwpn = kWwpn, .port_id = 0x010200});
    host.add_rport({.wwpn = 0x5006016000000001, .port_id = 0x010300, .target_id = 2});
    scan();
    HBA_PORTATTRIBUTES attr;
    ASSERT_EQ(GetAdapterPortAttributes(0, 0, &attr), 0u) << generation;
    EXPECT_EQ(number(attr.PortWWN), kWwpn);
    EXPECT_EQ(attr.PortFcId, 0x010200u);
    EXPECT_EQ(attr.PortState, 2u);
    EXPECT_EQ(attr.PortMaxFrameSize, 2048u);
    EXPECT_EQ(attr.PortType, generation ? 5u : 0u);
    EXPECT_TRUE(m.vfs().exists("/sys/class/fc_transport/target3:0:2/"));
    hcx_port remote = {};
    remote.host = hcx_host_list;
    remote.scsi_target_id = 2;
    ASSERT_EQ(hcx_sysfs_read_port(&remote, &attr), 0u);
    EXPECT_EQ(number(attr.PortWWN), 0x5006016000000001u);
    EXPECT_EQ(attr.PortFcId, 0x010300u);
    EXPECT_EQ(attr.PortSupportedClassofService, 8u);
    TearDown();
    m.remove_host(3);
  }
}

// ---- statistics ----

TEST_F(Statistics, FifteenFilesAndNothingElse) {
  sim::Host &host = add_board();
  uint64_t value = 0x1000000000;
  for (const char *file :
       {"seconds_since_last_reset", "tx_frames", "tx_words", "rx_frames", "rx_words", "lip_count",
        "nos_count", "error_frames", "dumped_frames", "link_failure_count", "loss_of_sync_count",
        "loss_of_signal_count", "prim_seq_protocol_err_count", "invalid_tx_word_count", "invalid_crc_count"})
    host.set_statistic(file, value++);
  scan();
  HBA_PORTSTATISTICS stat = {};
  ASSERT_EQ(GetPortStatistics(0, 77, &stat), 0u);
  for (size_t i = 0; i < 15; i++)
    EXPECT_EQ((&stat.SecondsSinceLastReset)[i], int64_t(0x1000000000 + i)) << i;
  m.clear_records();
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(m.calls(sim::Verb::open), 15u);
  EXPECT_EQ(m.calls(sim::Verb::list) + m.calls(sim::Verb::stat) + m.calls(sim::Verb::read_link), 0u);
  m.vfs().remove(host.fc_dir() + "statistics/tx_words");
  host.set_statistic("nos_count", ~0ull);
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.TxWords, 0);
  EXPECT_EQ(stat.NOSCount, -1);
  EXPECT_EQ(stat.RxWords, 0x1000000004);
}

TEST_F(Statistics, CountFromTheLastReset) {
  sim::Host &host = add_board();
  host.set_statistic("seconds_since_last_reset", 100);
  host.set_statistic("tx_frames", 5000);
  host.set_statistic("rx_frames", 9);
  host.set_statistic("lip_count", ~0ull);
  host.set_statistic("nos_count", 4);
  host.set_statistic("dumped_frames", ~0ull);
  host.set_statistic("error_frames", ~0ull);
  scan();
  ResetStatistics(0, 0);
  HBA_PORTSTATISTICS stat;
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.TxFrames, 0);
  EXPECT_EQ(stat.LIPCount, -1);
  EXPECT_EQ(stat.DumpedFrames, -1);
  EXPECT_EQ(stat.ErrorFrames, 0);  // only the three above keep the mark
  host.set_statistic("seconds_since_last_reset", 130);
  host.set_statistic("tx_frames", 5077);
  host.set_statistic("rx_frames", 2);  // wrapped
  host.set_statistic("nos_count", 5);
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.SecondsSinceLastReset, 30);
  EXPECT_EQ(stat.TxFrames, 77);
  EXPECT_EQ(stat.RxFrames, -7);
  EXPECT_EQ(stat.NOSCount, 1);
  ResetStatistics(0, 0);  // a second one replaces the first
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.TxFrames, 0);
  // A rescan keeps the baseline as long as the port keeps its name.
  ASSERT_EQ(RefreshInformation(0), 0u);
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.TxFrames, 0);
  host.set_fc("port_name", "0x10000000c9000099");
  ASSERT_EQ(RefreshInformation(0), 0u);
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.TxFrames, 5077);
  ResetStatistics(0, 0);
  m.fail({.verb = sim::Verb::read, .path = "host3/stats", .nth = 1, .short_count = 119});
  ResetStatistics(0, 0);
  EXPECT_TRUE(m.logged("ResetStatistics - board 0 error reading host stats"));
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.TxFrames, 5077);  // a failed reset ends the earlier one
  ResetStatistics(8, 0);
  EXPECT_TRUE(m.logged("ResetStatistics - no host on board 8"));
}

TEST_F(Statistics, OnlyTheFirstResetNeedsMemory) {
  sim::Host &host = add_board();
  host.set_statistic("tx_frames", 5000);
  scan();
  alloc_fault::fail_nth(1);
  ResetStatistics(0, 0);
  EXPECT_TRUE(alloc_fault::take_hit());
  EXPECT_TRUE(m.logged("ResetStatistics - board 0 no host stat_reset"));
  HBA_PORTSTATISTICS stat;
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.TxFrames, 5000);
  ResetStatistics(0, 0);
  host.set_statistic("tx_frames", 5010);
  alloc_fault::fail_nth(1);
  ResetStatistics(0, 0);  // renews what is there
  EXPECT_FALSE(alloc_fault::take_hit());
  host.set_statistic("tx_frames", 5012);
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.TxFrames, 2);
}

TEST_F(Statistics, OlderTreesGiveThemAsOneBlock) {
  m.generation(1);
  sim::Host &host = add_board();
  uint64_t block[15];
  for (size_t i = 0; i < 15; i++)
    block[i] = 0x4000 + i;
  m.vfs().put_binary(host.scsi_dir() + "stats", bytes_of(block, sizeof block), 0400, sizeof block);
  scan();
  HBA_PORTSTATISTICS stat;
  ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
  EXPECT_EQ(stat.SecondsSinceLastReset, 0x4000);
  EXPECT_EQ(stat.InvalidCRCCount, 0x400e);
  memset(&stat, 0xee, sizeof stat);
  const HBA_PORTSTATISTICS before = stat;
  m.vfs().put_binary(host.scsi_dir() + "stats", std::string(112, '\1'), 0400, 112);
  expect_told(GetPortStatistics(0, 0, &stat), 1, "GetPortStatistics - board 0 error reading host stats");
  EXPECT_EQ(bytes_of(&stat, sizeof stat), bytes_of(&before, sizeof before));
  EXPECT_EQ(GetPortStatistics(6, 0, &stat), 12u);
  EXPECT_EQ(GetPortStatistics(0, 0, nullptr), 4u);
}

TEST_F(Statistics, ResetsAndReadsInParallel) {
  sim::Host &host = add_board();
  host.set_statistic("tx_frames", 1 << 20);
  scan();
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; i++) {
    threads.emplace_back([] {
      for (int n = 0; n < 50; n++)
        ResetStatistics(0, 0);
    });
    threads.emplace_back([] {
      for (int n = 0; n < 50; n++) {
        HBA_PORTSTATISTICS stat;
        ASSERT_EQ(GetPortStatistics(0, 0, &stat), 0u);
        // Never anything but the counter itself or the distance to a whole snapshot.
        ASSERT_TRUE(stat.TxFrames == 0 || stat.TxFrames == 1 << 20) << stat.TxFrames;
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
}

}  // namespace
