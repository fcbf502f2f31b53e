// SPDX-License-Identifier: BSD-3-Clause
// Latency statistics on the simulated machine: what is written to which host and when nothing may be, and the data
// with buffers of every kind.
#include <latch>
#include <thread>

#include "sd_fixture.h"

namespace {

constexpr uint16_t type = SD_IO_LATENCY_TYPE;
constexpr uint32_t ms = 1000000;
constexpr char control[] = "vosk_stat_data_ctrl";

class LatencyTest : public SdTest {
 public:  // the steps of a collection are called through pointers
  using Texts = std::vector<std::string>;

  // Commands that the hosts got since the last look: "host3 start\n".
  Texts commands() {
    Texts texts;
    for (const sim::Write &write : m.writes()) {
      if (write.path.find(control) == std::string::npos) continue;
      const size_t host = std::min(write.path.find("host3"), write.path.find("host4"));
      texts.push_back(write.path.substr(host, 5) + " " + write.text);
    }
    m.clear_records();
    return texts;
  }
  int32_t set(uint32_t base = 10 * ms, uint32_t step = 5 * ms) {
    return HCX_SD_Set_Bucket(type, SD_SEARCH_LINEAR, base, step);
  }
  int32_t start(uint32_t board) { return HCX_SD_Start_Data_Collection(board, own, type, nullptr); }
  int32_t stop(uint32_t board) { return HCX_SD_Stop_Data_Collection(board, own, type); }
  int32_t reset(uint32_t board) { return HCX_SD_Reset_Data_Collection(board, own, type); }
  void put_data(const std::string &bytes) {
    m.vfs().put_binary(three->scsi_dir() + "vosk_drvr_stat_data", bytes, 0444);
  }
  static std::string record(std::string text) {
    text.resize(238, '\0');
    return text;
  }
};

TEST_F(LatencyTest, DefinitionsReachEveryHost) {
  EXPECT_EQ(set(), SD_OK);
  EXPECT_EQ(commands(), (Texts{"host3 setbucket linear 10 5 \n", "host4 setbucket linear 10 5 \n"}));
  uint16_t search_type;
  uint32_t base, step;
  uint64_t values[SD_BUCKETS];
  EXPECT_EQ(HCX_SD_Get_Bucket(type, &search_type, &base, &step, values), SD_OK);
  EXPECT_EQ(search_type, SD_SEARCH_LINEAR);
  EXPECT_EQ(base, 10 * ms);
  EXPECT_EQ(step, 5 * ms);
  EXPECT_EQ(values[19], 105u * ms);
  EXPECT_EQ(HCX_SD_Set_Bucket(type, SD_SEARCH_POWER_2, 0, 5 * ms), SD_OK);
  EXPECT_EQ(commands(), (Texts{"host3 setbucket power2 0 5 \n", "host4 setbucket power2 0 5 \n"}));
  EXPECT_EQ(HCX_SD_Get_Bucket(type, &search_type, &base, &step, values), SD_OK);
  EXPECT_EQ(search_type, SD_SEARCH_POWER_2);
  EXPECT_EQ(values[19], uint64_t{5} * ms << 19);
  EXPECT_EQ(is_bucket_set(4), 1);
  EXPECT_EQ(HCX_SD_Destroy_Bucket(type), SD_OK);
  EXPECT_EQ(commands(), (Texts{"host3 destroybucket\n", "host4 destroybucket\n"}));
  EXPECT_EQ(HCX_SD_Get_Bucket(type, &search_type, &base, &step, values), SD_ERROR_BUCKET_NOTSET);
  expect_logged("HCX_SD_Get_Bucket - bucket not set");
}

TEST_F(LatencyTest, GranularityIsThatOfTheClock) {
  const struct {
    long resolution;
    uint32_t granularity;
  } rows[] = {{1, ms},           {999999, ms},      {1000000, ms},     {1499999, ms},          {1500000, ms},
              {1500001, 2 * ms}, {1600000, 2 * ms}, {4000000, 4 * ms}, {999999999, 1000 * ms}, {0, ms}};
  for (const auto &row : rows) {
    m.resolution = {row.resolution == 0 ? 1 : 0, row.resolution};
    EXPECT_EQ(HCX_SD_Get_Granularity(), row.granularity) << row.resolution;
  }
  m.resolution = {0, 4000000};
  expect_told(set(8 * ms, 6 * ms), SD_ERROR_INVALID_ARG, "HCX_SD_Set_Bucket - invalid step 6000000");
  expect_logged("HCX_SD_Get_Granularity - granularity 4000000");
  EXPECT_EQ(set(8 * ms, 4 * ms), SD_OK);
  m.fail({.verb = sim::Verb::clock_resolution});
  EXPECT_EQ(HCX_SD_Get_Granularity(), ms);
}

TEST_F(LatencyTest, DefinitionsThatAreRefused) {
  const struct {
    uint16_t kind, search;
    uint32_t base, step;
    int32_t result;
  } rows[] = {
      {0, 1, 5 * ms, 5 * ms, SD_ERROR_NOT_SUPPORTED}, {1, 3, 5 * ms, 5 * ms, SD_ERROR_INVALID_SEARCH_TYPE},
      {1, 1, 5 * ms, 0, SD_ERROR_INVALID_ARG},        {1, 1, 5 * ms + 1, 5 * ms, SD_ERROR_INVALID_ARG},
      {1, 2, 0, 5 * ms - 1, SD_ERROR_INVALID_ARG},    {1, 1, 0, 5 * ms, SD_ERROR_INVALID_ARG},
  };
  for (const auto &row : rows)
    EXPECT_EQ(HCX_SD_Set_Bucket(row.kind, row.search, row.base, row.step), row.result)
        << row.kind << ' ' << row.search << ' ' << row.base << ' ' << row.step;
  EXPECT_EQ(HCX_SD_Destroy_Bucket(2), SD_ERROR_NOT_SUPPORTED);
  uint16_t t;
  uint32_t n;
  uint64_t v[SD_BUCKETS];
  EXPECT_EQ(HCX_SD_Get_Bucket(7, &t, &n, &n, nullptr), SD_ERROR_ARG_MISSING);
  EXPECT_EQ(HCX_SD_Get_Bucket(7, &t, &n, &n, v), SD_ERROR_NOT_SUPPORTED);
  uint16_t targets;
  EXPECT_EQ(HCX_SD_Get_Data(0, own, 7, nullptr, 0, nullptr), SD_ERROR_NOT_SUPPORTED);
  EXPECT_EQ(HCX_SD_Get_Data(0, own, type, &targets, 0, nullptr), SD_ERROR_ARG_MISSING);
  EXPECT_EQ(HCX_SD_Get_Data(0, own, type, nullptr, 0, v), SD_ERROR_ARG_MISSING);
  EXPECT_EQ(HCX_SD_Start_Data_Collection(0, own, 2, nullptr), SD_ERROR_NOT_SUPPORTED);
  expect_logged("HCX_SD_Start_Data_Collection - board 0 invalid latency type 2");
  EXPECT_EQ(HCX_SD_Stop_Data_Collection(0, own, 2), SD_ERROR_NOT_SUPPORTED);
  expect_logged("HCX_SD_Stop_Data_Collection - type 2 not supported");
  EXPECT_EQ(HCX_SD_Reset_Data_Collection(0, own, 2), SD_ERROR_NOT_SUPPORTED);
  EXPECT_EQ(commands(), Texts{});
}

TEST_F(LatencyTest, OneCollectingHostKeepsEveryDefinition) {
  ASSERT_EQ(set(), SD_OK);
  ASSERT_EQ(start(1), SD_OK);
  commands();
  EXPECT_EQ(set(20 * ms), SD_ERROR_DATA_COLLECTION_ACTIVE);
  EXPECT_EQ(HCX_SD_Destroy_Bucket(type), SD_ERROR_DATA_COLLECTION_ACTIVE);
  expect_logged("HCX_SD_Destroy_Bucket - data collection already active");
  EXPECT_EQ(commands(), Texts{});
  EXPECT_EQ(stop(1), SD_OK);
  EXPECT_EQ(set(20 * ms), SD_OK);
  // Nor may a host without buckets see another one's go.
  four->machine().vfs().put_text(four->scsi_dir() + control, "e :0, b :0, t :No Bucket\n", 0644);
  commands();
  EXPECT_EQ(HCX_SD_Destroy_Bucket(type), SD_ERROR_BUCKET_NOTSET);
  EXPECT_EQ(commands(), Texts{});
}

TEST_F(LatencyTest, AHostThatRefusesEndsTheRound) {
  m.fail({.verb = sim::Verb::write, .path = "host3", .nth = 1, .error = EPERM});
  EXPECT_EQ(set(), SD_ERROR_NOT_SUPPORTED);
  expect_logged("HCX_SD_Set_Bucket - error writing vosk_stat_data_ctrl in /sys/class/scsi_host/host3/");
  EXPECT_EQ(commands(), Texts{"host3 setbucket linear 10 5 \n"});
  EXPECT_EQ(set(), SD_OK);
  m.fail({.verb = sim::Verb::write, .path = "host4", .nth = 1, .error = EPERM});
  expect_told(HCX_SD_Destroy_Bucket(type), SD_ERROR_NOT_SUPPORTED,
              "HCX_SD_Destroy_Bucket - could not write destroybucket to vosk_stat_data_ctrl in "
              "/sys/class/scsi_host/host4/");
  EXPECT_EQ(is_bucket_set(3), 0);
  EXPECT_EQ(is_bucket_set(4), 1);
  m.vfs().remove(three->scsi_dir() + control);
  uint16_t t;
  uint32_t n;
  uint64_t v[SD_BUCKETS];
  EXPECT_EQ(HCX_SD_Get_Bucket(type, &t, &n, &n, v), SD_ERROR_NOT_SUPPORTED);
  expect_logged("HCX_SD_Get_Bucket - not supported - vosk_stat_data_ctrl in /sys/class/scsi_host/host3/");
  m.vfs().put_text(three->scsi_dir() + control, "e :0, b :0, t :cubic, base :1, step :1\n", 0644);
  EXPECT_EQ(HCX_SD_Get_Bucket(type, &t, &n, &n, v), SD_ERROR_GENERIC);
  expect_logged("HCX_SD_Get_Bucket - error parsing vosk_stat_data_ctrl in /sys/class/scsi_host/host3/");
}

TEST_F(LatencyTest, CollectionHasItsOrder) {
  struct Step {
    int32_t (LatencyTest::*call)(uint32_t);
    int32_t result;
    const char *command;
  };
  const auto walk = [this](const std::vector<Step> &steps) {
    for (size_t i = 0; i < steps.size(); ++i) {
      EXPECT_EQ((this->*steps[i].call)(1), steps[i].result) << i;
      EXPECT_EQ(commands(), steps[i].command ? Texts{steps[i].command} : Texts{}) << i;
    }
  };
  walk({{&LatencyTest::start, SD_ERROR_BUCKET_NOTSET, nullptr},
        {&LatencyTest::stop, SD_ERROR_BUCKET_NOTSET, nullptr},
        {&LatencyTest::reset, SD_ERROR_BUCKET_NOTSET, nullptr}});
  expect_told(reset(1), SD_ERROR_BUCKET_NOTSET, "HCX_SD_Reset_Data_Collection - board 1 bucket not set");
  ASSERT_EQ(set(), SD_OK);
  commands();
  walk({{&LatencyTest::stop, SD_ERROR_DATA_COLLECTION_NOT_ACTIVE, nullptr},
        {&LatencyTest::reset, SD_OK, "host4 reset\n"},
        {&LatencyTest::start, SD_OK, "host4 start\n"},
        {&LatencyTest::start, SD_ERROR_DATA_COLLECTION_ACTIVE, nullptr},
        {&LatencyTest::reset, SD_OK, "host4 reset\n"},
        {&LatencyTest::stop, SD_OK, "host4 stop\n"}});
  m.fail({.verb = sim::Verb::write, .path = control, .error = EIO});
  expect_told(start(1), SD_ERROR_NOT_SUPPORTED,
              "HCX_SD_Start_Data_Collection - could not write start to vosk_stat_data_ctrl in "
              "/sys/class/scsi_host/host4/");
}

TEST_F(LatencyTest, BoardsAndPorts) {
  ASSERT_EQ(set(), SD_OK);
  commands();
  const HBA_WWN other = wwn(0x1000000000000004), nobody = wwn(0x1000000000000005);
  EXPECT_EQ(HCX_SD_Start_Data_Collection(0, other, type, nullptr), SD_OK);
  EXPECT_EQ(commands(), Texts{"host4 start\n"});
  EXPECT_EQ(HCX_SD_Start_Data_Collection(0, nobody, type, nullptr), SD_ERROR_INVALID_PORT);
  expect_logged("HCX_SD_Start_Data_Collection - board 0 invalid port");
  for (const uint32_t board : {2u, 0x80000000u, 0xffffffffu}) {
    EXPECT_EQ(start(board), SD_ERROR_INVALID_BOARD_ID);
    hcx_host_list->brd_idx = -1;
  }
  expect_logged("HCX_SD_Start_Data_Collection - no host on board 2");
}

TEST_F(LatencyTest, CountsOfTargets) {
  const std::string one = record("5006016000000001:1,2,3,\n"), two = record("5006016000000002:4\n"),
                    bad = record("500601600000003:1\n");
  constexpr size_t size = sizeof(SD_IO_Latency_Response);
  const struct {
    const char *what;
    std::string data;
    uint32_t room;
    int32_t result;
    uint16_t targets;
    size_t stored;
  } rows[] = {
      {"none", "", 1000, SD_OK, 0, 0},
      {"all fit", one + two, 1000, SD_OK, 2, 2},
      {"the last is cut", one + two + one.substr(0, 100), 1000, SD_OK, 2, 2},
      {"one fits", one + two + two, 100, SD_ERROR_MORE_DATA_AVAILABLE, 3, 1},
      {"one byte short", one + two, 2 * size - 1, SD_ERROR_MORE_DATA_AVAILABLE, 2, 1},
      {"no room", one + two, 0, SD_ERROR_MORE_DATA_AVAILABLE, 2, 0},
      {"a negative size", one, 0x80000000, SD_ERROR_MORE_DATA_AVAILABLE, 1, 0},
      {"malformed later", one + bad, 1000, SD_ERROR_GENERIC, 1, 1},
      {"malformed, but there is no room for it", one + bad, 100, SD_ERROR_MORE_DATA_AVAILABLE, 2, 1},
  };
  ASSERT_EQ(set(), SD_OK);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    put_data(row.data);
    std::vector<uint8_t> buffer(1001, 0xaa);  // odd on purpose: the caller's alignment is its own
    uint16_t targets = 99;
    EXPECT_EQ(HCX_SD_Get_Data(0, own, type, &targets, row.room, buffer.data() + 1), row.result);
    EXPECT_EQ(targets, row.targets);
    EXPECT_EQ(buffer[1 + row.stored * size], 0xaa) << "beyond the room, or a malformed record";
    if (row.stored > 0) {
      SD_IO_Latency_Response first;
      memcpy(&first, buffer.data() + 1, sizeof first);
      EXPECT_EQ(number(first.sd_iolatency_target_wwpn), 0x5006016000000001u);
      EXPECT_EQ(first.sd_time_stats_array[2].sd_tstats_bucket_count, 3u);
      EXPECT_EQ(first.sd_time_stats_array[3].sd_tstats_bucket_count, 0u);
    }
  }
  expect_logged("HCX_SD_Get_Data - no targets (ok) at vosk_drvr_stat_data in /sys/class/scsi_host/host3/");
  expect_logged(
      "HCX_SD_Get_Data - more data available in vosk_drvr_stat_data in /sys/class/scsi_host/host3/ buff_size "
      "100");
  expect_logged("HCX_SD_Get_Data - error parsing vosk_drvr_stat_data in /sys/class/scsi_host/host3/");
}

TEST_F(LatencyTest, AReadThatFailsIsNoEnd) {
  ASSERT_EQ(set(), SD_OK);
  put_data(record("5006016000000001:1\n") + record("5006016000000002:1\n"));
  SD_IO_Latency_Response records[2];
  uint16_t targets;
  for (const uint32_t room : {sizeof records, sizeof records[0]}) {
    for (const int nth : {1, 2, 3}) {
      m.fail({.verb = sim::Verb::read, .path = "vosk_drvr_stat_data", .nth = nth});
      EXPECT_EQ(HCX_SD_Get_Data(0, own, type, &targets, room, records), SD_ERROR_GENERIC) << nth;
      EXPECT_EQ(targets, nth - 1);
      m.clear_faults();
    }
  }
  expect_logged(
      "HCX_SD_Get_Data - error reading vosk_stat_data_ctrl in /sys/class/scsi_host/host3/ at offset 0 "
      "size 238");
  // A file that is not there has no targets.
  m.vfs().remove(three->scsi_dir() + "vosk_drvr_stat_data");
  EXPECT_EQ(HCX_SD_Get_Data(0, own, type, &targets, sizeof records, records), SD_OK);
  EXPECT_EQ(targets, 0);
}

TEST_F(LatencyTest, DataWithoutEndAreCountedAsFarAsTheCountGoes) {
  ASSERT_EQ(set(), SD_OK);
  m.vfs().put_binary(three->scsi_dir() + "vosk_drvr_stat_data", "", 0444).hooks().read_at =
      [](uint64_t, void *buf, size_t count) -> ssize_t {
    memcpy(buf, record("5006016000000001:1\n").data(), count);
    return static_cast<ssize_t>(count);
  };
  SD_IO_Latency_Response one;
  uint16_t targets;
  EXPECT_EQ(HCX_SD_Get_Data(0, own, type, &targets, sizeof one, &one), SD_ERROR_MORE_DATA_AVAILABLE);
  EXPECT_EQ(targets, 65535);
}

TEST_F(LatencyTest, TheSimulatedDriverCounts) {
  three->add_rport({.wwpn = 0x5006016000000001});
  three->add_rport({.wwpn = 0x1000000000001111, .roles = "FCP Initiator"});
  ASSERT_EQ(set(), SD_OK);
  const auto ios = [] {
    SD_IO_Latency_Response records[2];
    uint16_t targets = 0;
    EXPECT_EQ(HCX_SD_Get_Data(0, own, type, &targets, sizeof records, records), SD_OK);
    EXPECT_EQ(targets, 1);
    uint64_t sum = 0;
    for (const SD_time_stats_v0 &bucket : records[0].sd_time_stats_array)
      sum += bucket.sd_tstats_bucket_count;
    return sum;
  };
  ASSERT_EQ(start(0), SD_OK);
  m.clock += 10;
  const uint64_t ten_seconds = ios();
  EXPECT_GT(ten_seconds, 1000u);
  ASSERT_EQ(stop(0), SD_OK);
  m.clock += 10;
  EXPECT_EQ(ios(), ten_seconds);
  ASSERT_EQ(start(0), SD_OK);
  ASSERT_EQ(reset(0), SD_OK);
  EXPECT_EQ(ios(), 0u);
}

TEST_F(LatencyTest, TheLockOfTheService) {
  EXPECT_EQ(free_sd_lock(), SD_ERROR_GENERIC);
  ASSERT_EQ(get_sd_lock(), SD_OK);
  // A thread that has it is told so instead of waiting for itself, whatever it calls, and all goes on.
  expect_told(get_sd_lock(), SD_ERROR_GENERIC, "get_sd_lock - wrlock failed");
  EXPECT_EQ(set(), SD_ERROR_GENERIC);
  EXPECT_EQ(hcx_sd_init(table, 2), SD_ERROR_GENERIC);
  EXPECT_EQ(hcx_sd_deinit(), SD_ERROR_GENERIC);
  EXPECT_EQ(free_sd_lock(), SD_OK);
  EXPECT_EQ(set(), SD_OK);
  EXPECT_EQ(get_host_lock(hcx_host_list), SD_OK);
  EXPECT_EQ(pthread_rwlock_trywrlock(&hcx_host_list->rwlock), EBUSY);
  EXPECT_EQ(free_host_lock(hcx_host_list), SD_OK);
  EXPECT_EQ(get_host_lock(nullptr), SD_ERROR_ARG_MISSING);
  EXPECT_EQ(free_host_lock(nullptr), SD_ERROR_ARG_MISSING);
}

TEST_F(LatencyTest, UpAndDown) {
  EXPECT_EQ(hcx_sd_init(nullptr, 2), SD_ERROR_INVALID_ARG);
  expect_told(hcx_sd_init(table, 0), SD_ERROR_INVALID_ARG, "hcx_sd_init - zero count or no board info");
  EXPECT_EQ(hcx_sd_init(table, 2), SD_OK);
  EXPECT_EQ(set(), SD_OK);
  // Who waits for the lock when the service ends gets an answer.
  ASSERT_EQ(get_sd_lock(), SD_OK);
  std::latch ready(1);
  std::thread waiting([&] {
    ready.count_down();
    const int32_t result = set();
    EXPECT_TRUE(result == SD_OK || result == SD_ERROR_LIB_NOT_INIT) << result;
  });
  ready.wait();
  EXPECT_EQ(free_sd_lock(), SD_OK);
  EXPECT_EQ(hcx_sd_deinit(), SD_OK);
  waiting.join();
  EXPECT_EQ(hcx_sd_deinit(), SD_OK);
  EXPECT_EQ(set(), SD_ERROR_LIB_NOT_INIT);
  expect_told(free_sd_lock(), SD_ERROR_LIB_NOT_INIT, "get_sd_lock - not configured");
  EXPECT_EQ(hcx_sd_init(table, 2), SD_OK);
  EXPECT_EQ(set(), SD_OK);
  // Without hosts the service says so, and stays down until it is set up again.
  hcx_host *const list = std::exchange(hcx_host_list, nullptr);
  expect_told(get_sd_lock(), SD_ERROR_LIB_NOT_INIT, "get_sd_lock - no boards");
  expect_told(set(), SD_ERROR_LIB_NOT_INIT, "HCX_SD_Set_Bucket - not initialized");
  hcx_host_list = list;
  EXPECT_EQ(set(), SD_ERROR_LIB_NOT_INIT);
  EXPECT_EQ(hcx_sd_init(table, 2), SD_OK);
  EXPECT_EQ(set(), SD_OK);
}

}  // namespace
