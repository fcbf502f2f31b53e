// SPDX-License-Identifier: BSD-3-Clause
// Diagnostic events: who is registered for what, what a registered function sees of the driver's records, and calls
// from all sides at once. The records are laid out here byte by byte, but for the integers, which come in the
// processor's order.
#include "hcx_sdapi_event.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "alloc_fault.h"
#include "sd_fixture.h"
#include "sim_events.h"

namespace {

using namespace std::chrono_literals;
using hcx::sd::hcx_events_list_head;
using hcx::sd::hcx_next_event_handle;

std::string word(uint32_t value) {
  return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

const std::string port_bytes = "\x50\x06\x01\x60\x3e\xa0\x10\x01";
const std::string node_bytes = "\x50\x06\x01\x60\xbe\xa0\x10\x02";
const std::string port = "500601603ea01001";
const std::string node = "50060160bea01002";

std::string hex(const HBA_WWN &name) {
  char text[17];
  snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hcx::wwn_load(name.wwn)));
  return text;
}

std::string numbers(std::initializer_list<uint32_t> values) {
  std::string text;
  for (const uint32_t value : values)
    text += ' ' + std::to_string(value);
  return text;
}

// The last record of the chain: versions that are not 0 spoil the line. The categories' records are of one shape.
template <class Detail>
const Detail *detail_of(const SD_event *event, std::string *text) {
  static_assert(sizeof(SD_els_event_details_v0) == sizeof(SD_fabric_event_details_v0) &&
                sizeof(SD_els_event_details_v0) == sizeof(sd_scsi_event_details_v0));
  const auto *category = static_cast<const char *>(event->sd_evt_payload);
  uint32_t version, detail_version;
  const void *payload;
  memcpy(&version, category, sizeof version);
  memcpy(&payload, category + sizeof(SD_els_event_details_v0) - sizeof payload, sizeof payload);
  memcpy(&detail_version, payload, sizeof detail_version);
  if (event->sd_evt_version != 0 || version != 0 || detail_version != 0) *text += "version! ";
  return static_cast<const Detail *>(payload);
}

std::string describe(uint32_t category, uint32_t subcategory, const SD_event *event) {
  std::string text = std::to_string(category) + '/' + std::to_string(subcategory) + ' ';
  if (!event->sd_evt_payload) return text + "nothing";
  switch (category << 8 | subcategory) {
    case 0x101: {
      const auto *d = detail_of<sd_plogi_rcv_v0>(event, &text);
      return text + hex(d->sd_plogir_portname) + ' ' + hex(d->sd_plogir_nodename);
    }
    case 0x102:
      return text + hex(detail_of<sd_prlo_rcv_v0>(event, &text)->sd_prlor_remoteport);
    case 0x104: {
      const auto *d = detail_of<sd_adisc_rcv_v0>(event, &text);
      return text + hex(d->sd_adiscr_portname) + ' ' + hex(d->sd_adiscr_nodename);
    }
    case 0x108: {
      const auto *d = detail_of<sd_lsrjt_rcv_v0>(event, &text);
      return text + hex(d->sd_lsrjtr_remoteport) +
             numbers({d->sd_lsrjtr_original_cmd, d->sd_lsrjtr_reasoncode, d->sd_lsrjtr_reasoncodeexpl});
    }
    case 0x110: {
      const auto *d = detail_of<sd_logo_rcv_v0>(event, &text);
      return text + hex(d->sd_logo_rportname) + ' ' + hex(d->sd_logo_payloadwwpn);
    }
    case 0x201:
    case 0x202:
      return text + hex(detail_of<sd_pbsy_rcv_v0>(event, &text)->sd_pbsyr_rport);
    case 0x204: {
      const auto *d = detail_of<sd_fcprdchkerr_v0>(event, &text);
      return text + hex(d->sd_fcprdchkerr_rport) +
             numbers({d->sd_fcprdchkerr_lun, d->sd_fcprdchkerr_opcode, d->sd_fcprdchkerr_fcpiparam});
    }
    case 0x404: {
      const auto *d = detail_of<sd_scsi_checkcondition_v0>(event, &text);
      return text + hex(d->sd_checkcondition_rport) +
             numbers({d->sd_checkcondition_lun, d->sd_checkcondition_cmdcode, d->sd_checkcondition_senskey,
                      d->sd_checkcondition_asc, d->sd_checkcondition_ascq});
    }
    case 0x440: {
      const auto *d = detail_of<sd_scsi_varquedepth_v0>(event, &text);
      return text + hex(d->sd_varquedepth_rport) +
             numbers({d->sd_varquedepth_lun, d->sd_varquedepth_oldval, d->sd_varquedepth_newval});
    }
    default: {
      const auto *d = detail_of<SD_scsi_generic_v0>(event, &text);
      return text + hex(d->sd_scsi_generic_rport) + numbers({d->sd_scsi_generic_lun});
    }
  }
}

// What registered functions were called with. The context is the name of the registration.
struct Calls {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> lines;
  uint32_t size = 0;  // of the last chain
  std::function<void()> inside;

  std::vector<std::string> take() {
    const std::lock_guard guard(mutex);
    return std::exchange(lines, {});
  }
  bool wait(size_t count) {
    std::unique_lock guard(mutex);
    return changed.wait_for(guard, 20s, [&] { return lines.size() >= count; });
  }
} calls;

void on_event(uint32_t board, HBA_WWN port_id, uint32_t category, uint32_t subcategory, void *context,
              SD_event *event) {
  if (calls.inside) calls.inside();
  const std::lock_guard guard(calls.mutex);
  calls.size = event->sd_evt_size;
  calls.lines.push_back(std::string(static_cast<const char *>(context)) + " board " + std::to_string(board) +
                        " port " + hex(port_id) + ' ' + describe(category, subcategory, event));
  calls.changed.notify_all();
}

char first[] = "first", second[] = "second";

class SdEventTest : public SdTest {
 protected:
  void SetUp() override {
    SdTest::SetUp();
    calls.lines.clear();
    calls.inside = nullptr;
  }
  int32_t add(uint32_t board, uint32_t category, uint32_t subcategory, HBA_WWN port_id = own,
              char *context = first) {
    return HCX_SD_RegisterForEvent(board, port_id, category, subcategory, context, &handle, on_event);
  }
  // An event of host3, of `length` bytes in a buffer that has no more.
  static void happen(const std::string &record, uint32_t host_no = 3) {
    std::vector<uint32_t> data((record.size() + 3) / 4);
    if (!data.empty()) memcpy(data.data(), record.data(), record.size());
    hcx_sd_async_event_handler(host_no, 1, 0xffff, data.data(), static_cast<uint32_t>(record.size()));
  }
  uint32_t handle = 0;
};

const std::string plogi = word(0x80) + word(1) + port_bytes + node_bytes;

constexpr bool wide = sizeof(void *) == 8;

struct Kind {
  uint32_t category, subcategory;
  std::string record;
  std::string seen;
  uint32_t size;
};

const std::vector<Kind> &kinds() {
  const std::string names = port_bytes + node_bytes;
  static const std::vector<Kind> rows = {
      {1, 1, plogi, port + ' ' + node, wide ? 52u : 40u},
      {1, 2, word(0x80) + word(2) + names, port, wide ? 44u : 32u},
      {1, 4, word(0x80) + word(4) + names, port + ' ' + node, wide ? 52u : 40u},
      {1, 8, word(0x80) + word(8) + names + word(3) + word(9) + word(0x2a), port + " 3 9 42",
       wide ? 56u : 44u},
      {1, 16, word(0x80) + word(16) + names + node_bytes, port + ' ' + node, wide ? 52u : 40u},
      {2, 1, word(0x100) + word(1) + names, port, wide ? 44u : 32u},
      {2, 2, word(0x100) + word(2) + names, port, wide ? 44u : 32u},
      {2, 4, word(0x100) + word(4) + names + word(7) + word(0x28) + word(512), port + " 7 40 512",
       wide ? 56u : 44u},
      {4, 1, word(0x200) + word(1) + word(5) + names, port + " 5", wide ? 48u : 36u},
      {4, 2, word(0x200) + word(2) + word(5) + names, port + " 5", wide ? 48u : 36u},
      {4, 4, word(0x200) + word(4) + word(5) + names + "\x28\xf6\x29\x03", port + " 5 40 246 41 3",
       wide ? 64u : 52u},
      {4, 8, word(0x200) + word(8) + word(5) + names, port + " 5", wide ? 48u : 36u},
      {4, 16, word(0x200) + word(16) + word(0x12345678) + names, port + " 305419896", wide ? 48u : 36u},
      {4, 32, word(0x200) + word(32) + word(5) + names, "nothing", wide ? 16u : 12u},
      {4, 64, word(0x200) + word(64) + word(5) + names + word(30) + word(15), port + " 5 30 15",
       wide ? 56u : 44u},
      {8, 1, word(0x400) + word(1), "nothing", wide ? 16u : 12u},
      {16, 1, word(0x800) + word(1), "nothing", wide ? 16u : 12u},
  };
  return rows;
}

TEST_F(SdEventTest, EachKindIsDecodedWholeOrNotAtAll) {
  for (const Kind &kind : kinds()) {
    const std::string name = std::to_string(kind.category) + '/' + std::to_string(kind.subcategory);
    SCOPED_TRACE(name);
    ASSERT_EQ(add(0, kind.category, kind.subcategory), SD_OK);
    happen(kind.record);
    EXPECT_EQ(calls.take(),
              std::vector<std::string>{"first board 0 port 0000000000000000 " + name + ' ' + kind.seen});
    EXPECT_EQ(calls.size, kind.size);
    happen(kind.record + "more");
    EXPECT_EQ(calls.take().size(), 1u);
    m.clear_records();
    for (size_t length = 0; length < kind.record.size(); ++length)
      happen(kind.record.substr(0, length));
    EXPECT_EQ(calls.take().size(), 0u);
    expect_logged("hcx_sd_async_event_handler - event 0 not handled on brd_idx 0 wwpn 0x1000000000000003");
  }
  const std::string zeros(40, '\0');
  happen(word(0x80) + word(3) + port_bytes + node_bytes);
  happen(word(0x100) + word(8) + zeros);
  happen(word(0x40) + word(1) + zeros);
  happen(word(0x200) + word(0) + zeros);
  EXPECT_EQ(calls.take().size(), 0u);
  expect_logged("hcx_sd_async_event_handler - event 128 not handled on brd_idx 0 wwpn 0x1000000000000003");
}

TEST_F(SdEventTest, OnlyVendorEventsWithData) {
  ASSERT_EQ(add(0, 1, 1), SD_OK);
  std::vector<uint32_t> data(6);
  memcpy(data.data(), plogi.data(), plogi.size());
  for (const uint32_t code : {0u, 5u, 0x1ffffu})
    hcx_sd_async_event_handler(3, 1, code, data.data(), 24);
  expect_logged("hcx_sd_async_event_handler - invalid event code 5");
  hcx_sd_async_event_handler(3, 1, 0xffff, nullptr, 24);
  expect_logged("hcx_sd_async_event_handler - no event data");
  EXPECT_EQ(calls.take().size(), 0u);
}

TEST_F(SdEventTest, WhoIsCalled) {
  const HBA_WWN three_port = wwn(0x1000000000000003);
  ASSERT_EQ(add(0, 1, 1, own, first), SD_OK);
  ASSERT_EQ(add(1, 1, 1, three_port, second), SD_OK);
  // Both fit: the newer one, although it is registered with the other board.
  happen(plogi);
  EXPECT_EQ(calls.take(),
            std::vector<std::string>{"second board 1 port 1000000000000003 1/1 " + port + ' ' + node});
  // Another board, another kind.
  happen(plogi, 4);
  happen(word(0x80) + word(2) + port_bytes + node_bytes);
  EXPECT_EQ(calls.take().size(), 0u);
  // The older one comes to its right.
  EXPECT_EQ(HCX_SD_unRegisterForEvent(1, three_port, handle), SD_OK);
  happen(plogi);
  EXPECT_EQ(calls.take(),
            std::vector<std::string>{"first board 0 port 0000000000000000 1/1 " + port + ' ' + node});
  // A port without a name does not stand for all boards' own ports.
  m.vfs().remove(four->fc_dir() + "port_name");
  happen(plogi, 4);
  EXPECT_EQ(calls.take().size(), 0u);
  // A virtual port is no board; its name is what counts. A host that nobody knows has no name.
  sim::Host &virtual_port = three->add_vport({.wwpn = 0x2001000000000003, .host_number = 9});
  ASSERT_EQ(add(0, 1, 2, wwn(0x2001000000000003), second), SD_OK);
  happen(word(0x80) + word(2) + port_bytes + node_bytes, 9);
  EXPECT_EQ(calls.take(), std::vector<std::string>{"second board 0 port 2001000000000003 1/2 " + port});
  happen(plogi, static_cast<uint32_t>(virtual_port.number()));
  happen(plogi, 77);
  EXPECT_EQ(calls.take().size(), 0u);
  happen(word(0x80) + word(32), 9);
  expect_logged("hcx_sd_async_event_handler - event 128 not handled on brd_idx -1 wwpn 0x2001000000000003");
}

TEST_F(SdEventTest, RegistrationsThatAreRefused) {
  const struct {
    uint32_t board;
    uint64_t port_id;
    uint32_t category, subcategory;
    int32_t result;
  } rows[] = {
      {0, 0, 0, 1, SD_ERROR_CATEGORY_NOT_SUPPORTED},
      {0, 0, 32, 1, SD_ERROR_CATEGORY_NOT_SUPPORTED},
      {0, 0, 1, 0, SD_ERROR_SUBCATEGORY_NOT_SUPPORTED},
      {0, 0, 1, 32, SD_ERROR_SUBCATEGORY_NOT_SUPPORTED},
      {0, 0, 2, 8, SD_ERROR_SUBCATEGORY_NOT_SUPPORTED},
      {0, 0, 4, 128, SD_ERROR_SUBCATEGORY_NOT_SUPPORTED},
      {3, 0, 1, 1, SD_ERROR_INVALID_BOARD_ID},
      {2, 0, 1, 1, SD_ERROR_INVALID_BOARD_ID},  // as many as there are boards: passes the first test only
      {0xffffffff, 0, 1, 1, SD_ERROR_INVALID_BOARD_ID},
      {0, 0x1000000000000009, 1, 1, SD_ERROR_INVALID_PORT},
  };
  for (const auto &row : rows)
    EXPECT_EQ(add(row.board, row.category, row.subcategory, wwn(row.port_id)), row.result)
        << row.board << ' ' << row.category << ' ' << row.subcategory;
  expect_logged("hcx_sd_validate_category - invalid category 32");
  expect_logged("hcx_sd_validate_category - invalid category 2 sub category 8");
  expect_logged("HCX_SD_RegisterForEvent - board id 3 too big");
  expect_logged("HCX_SD_RegisterForEvent - board id -1 too big");
  expect_logged("HCX_SD_RegisterForEvent - no host on board 2");
  EXPECT_EQ(HCX_SD_RegisterForEvent(0, own, 1, 1, nullptr, &handle, on_event), SD_ERROR_ARG_MISSING);
  EXPECT_EQ(HCX_SD_RegisterForEvent(0, own, 1, 1, first, nullptr, on_event), SD_ERROR_ARG_MISSING);
  EXPECT_EQ(HCX_SD_RegisterForEvent(0, own, 1, 1, first, &handle, nullptr), SD_ERROR_ARG_MISSING);
  alloc_fault::fail_nth(1);
  EXPECT_EQ(add(0, 1, 1), SD_ERROR_NO_MEMORY);
  EXPECT_TRUE(alloc_fault::take_hit());
  EXPECT_EQ(hcx_next_event_handle, 1u);
  EXPECT_EQ(hcx_events_list_head, nullptr);
  EXPECT_EQ(add(0, 1, 1), SD_OK);
  expect_told(add(0, 1, 1), SD_ERROR_EVENT_ALREADY_REGISTERED,
              "HCX_SD_RegisterForEvent - board 0 already registered category 1 subcategory 1 on wwpn "
              "0x0000000000000000");
  EXPECT_EQ(add(1, 1, 1), SD_OK);
  EXPECT_EQ(add(0, 1, 1, wwn(0x1000000000000003)), SD_OK);
}

TEST_F(SdEventTest, HandlesAndRemoval) {
  EXPECT_EQ(HCX_SD_unRegisterForEvent(9, own, 1), SD_ERROR_REG_HANDLE);
  hcx_next_event_handle = 5;
  const auto next = [this](uint32_t subcategory) {
    EXPECT_EQ(add(0, 1, subcategory), SD_OK);
    return handle;
  };
  EXPECT_EQ(next(1), 5u);
  EXPECT_EQ(next(2), 6u);
  hcx_next_event_handle = 5;
  EXPECT_EQ(next(4), 7u);
  EXPECT_EQ(hcx_next_event_handle, 8u);
  hcx_next_event_handle = UINT32_MAX;
  EXPECT_EQ(next(8), UINT32_MAX);
  EXPECT_EQ(next(16), 0u);
  EXPECT_EQ(hcx_next_event_handle, 1u);

  EXPECT_EQ(HCX_SD_unRegisterForEvent(3, own, 5), SD_ERROR_INVALID_BOARD_ID);
  EXPECT_EQ(HCX_SD_unRegisterForEvent(0, own, 8), SD_ERROR_REG_HANDLE);
  expect_logged("HCX_SD_unRegisterForEvent - board 0 no handle found");
  EXPECT_EQ(HCX_SD_unRegisterForEvent(0, wwn(1), 5), SD_ERROR_INVALID_PORT);
  expect_logged("HCX_SD_unRegisterForEvent - board 0 invalid port");
  EXPECT_EQ(HCX_SD_unRegisterForEvent(1, own, 5), SD_ERROR_INVALID_PORT);
  expect_logged("HCX_SD_unRegisterForEvent - search failed for board 1 ");
  // From the middle, the end and the head of the list.
  for (const uint32_t gone : {6u, 5u, 0u, 7u, UINT32_MAX})
    EXPECT_EQ(HCX_SD_unRegisterForEvent(0, own, gone), SD_OK) << gone;
  EXPECT_EQ(hcx_events_list_head, nullptr);
  happen(plogi);
  EXPECT_EQ(calls.take().size(), 0u);
}

TEST_F(SdEventTest, PrintsItsRegistrations) {
  const auto printed = [] {
    testing::internal::CaptureStdout();
    hcx_sd_show_events();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
  };
  EXPECT_EQ(printed(), "No events registered");
  ASSERT_EQ(add(0, 1, 1), SD_OK);
  ASSERT_EQ(add(1, 4, 64, wwn(0x1000000000000004)), SD_OK);
  EXPECT_EQ(printed(),
            "Handle 2 Board 1 Port 10:00:00:00:00:00:00:04 Category 4 Subcategory 64 occurences 0\n"
            "Handle 1 Board 0 Port 00:00:00:00:00:00:00:00 Category 1 Subcategory 1 occurences 0\n");
  hcx_sd_deinit();
  EXPECT_EQ(printed(), "No events registered");
}

TEST_F(SdEventTest, AFunctionThatCallsBackIsToldSo) {
  ASSERT_EQ(add(0, 1, 1), SD_OK);
  std::vector<int32_t> results;
  calls.inside = [&] {
    uint32_t other;
    results.push_back(HCX_SD_RegisterForEvent(0, own, 1, 2, first, &other, on_event));
    results.push_back(HCX_SD_unRegisterForEvent(0, own, handle));
    results.push_back(HCX_SD_Destroy_Bucket(1));
    results.push_back(hcx_sd_deinit());
    hcx_sd_show_events();
    hcx_sd_async_event_handler(3, 2, 0xffff, reinterpret_cast<uint32_t *>(&other), 0);
  };
  happen(plogi);
  EXPECT_EQ(results, std::vector<int32_t>(4, SD_ERROR_GENERIC));
  calls.inside = nullptr;
  happen(plogi);
  EXPECT_EQ(calls.take().size(), 2u);
  EXPECT_EQ(HCX_SD_unRegisterForEvent(0, own, handle), SD_OK);
}

TEST_F(SdEventTest, CallsFromAllSides) {
  // Counted rounds: who only waits for the others to end may wait long for a lock that all of them want.
  constexpr int rounds = 100;
  std::vector<std::thread> threads;
  for (uint32_t board : {0, 1}) {
    threads.emplace_back([&, board] {
      for (int i = 0; i < rounds; ++i) {
        uint32_t mine;
        if (HCX_SD_RegisterForEvent(board, own, 1, 1, first, &mine, on_event) == SD_OK)
          HCX_SD_unRegisterForEvent(board, own, mine);
      }
    });
    threads.emplace_back([&, board] {
      for (int i = 0; i < rounds; ++i)
        happen(plogi, 3 + board);
    });
  }
  threads.emplace_back([&] {
    for (int i = 0; i < rounds; ++i)
      HCX_SD_Set_Bucket(1, SD_SEARCH_LINEAR, 1000000, 1000000);
  });
  for (int i = 0; i < rounds / 10; ++i) {
    EXPECT_EQ(hcx_sd_deinit(), SD_OK);
    // Nobody is called once the service is down.
    calls.take();
    happen(plogi);
    EXPECT_EQ(calls.take().size(), 0u);
    EXPECT_EQ(hcx_events_list_head, nullptr);
    EXPECT_EQ(hcx_sd_init(table, 2), SD_OK);
    std::this_thread::yield();
  }
  for (std::thread &thread : threads)
    thread.join();
  ASSERT_EQ(hcx_sd_deinit(), SD_OK);
  ASSERT_EQ(hcx_sd_init(table, 2), SD_OK);
  calls.take();
  ASSERT_EQ(add(0, 1, 1), SD_OK);
  happen(plogi);
  EXPECT_EQ(calls.take().size(), 1u);
}

// From the kernel's message to the function, with the library as an application starts it.
class SdListenerTest : public ::testing::Test {};

TEST_F(SdListenerTest, EveryKindComesThroughTheListener) {
  sim::Machine m;
  sim::Installed installed(m);
  sim::Host &host = m.add_host({.number = 3, .wwpn = 0x1000000000000003});
  hcx_brdinfo table[1] = {};
  calls.lines.clear();
  ASSERT_EQ(HCX_InitDiagEnv(table, 1), 1u);
  uint32_t handle;
  for (const Kind &kind : kinds())
    ASSERT_EQ(HCX_SD_RegisterForEvent(0, {}, kind.category, kind.subcategory, first, &handle, on_event),
              SD_OK);
  for (const std::string &kind : sim::Events::diagnostic_kinds())
    m.events().diagnostic(host, {kind, port});
  EXPECT_TRUE(calls.wait(kinds().size()));
  const std::vector<std::string> lines = calls.take();
  ASSERT_EQ(lines.size(), kinds().size());
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string name =
        std::to_string(kinds()[i].category) + '/' + std::to_string(kinds()[i].subcategory);
    EXPECT_NE(lines[i].find(" port 0000000000000000 " + name + ' '), std::string::npos) << lines[i];
    EXPECT_EQ(lines[i].find(port) != std::string::npos, kinds()[i].seen != "nothing") << lines[i];
  }
  EXPECT_EQ(HCX_FreeDiagEnv(), 0u);
  EXPECT_EQ(HCX_SD_unRegisterForEvent(0, {}, handle), SD_ERROR_LIB_NOT_INIT);
  EXPECT_EQ(hcx_events_list_head, nullptr);
}

// The delivery gives the host back after the function: its record must still be there. After the next start the
// function is not called again.
TEST_F(SdListenerTest, AFunctionMayTearTheLibraryDown) {
  sim::Machine m;
  sim::Installed installed(m);
  sim::Host &host = m.add_host({.number = 3, .wwpn = 0x1000000000000003});
  hcx_brdinfo table[1] = {};
  ASSERT_EQ(HCX_InitDiagEnv(table, 1), 1u);
  uint32_t handle;
  ASSERT_EQ(HCX_SD_RegisterForEvent(0, {}, 1, 1, first, &handle, on_event), SD_OK);
  hcx_host *const record = hcx_host_list;
  calls.inside = [] { HCX_FreeDiagEnv(); };
  m.events().diagnostic(host, {"plogi", port});
  ASSERT_TRUE(calls.wait(1));
  calls.take();
  while (m.netlink().sockets() != 0)
    std::this_thread::yield();
  calls.inside = nullptr;
  EXPECT_EQ(hcx_host_list, nullptr);
  EXPECT_EQ(pthread_rwlock_trywrlock(&record->rwlock), 0) << "still locked";
  pthread_rwlock_unlock(&record->rwlock);

  ASSERT_EQ(HCX_InitDiagEnv(table, 1), 1u);
  ASSERT_EQ(HCX_SD_RegisterForEvent(0, {}, 8, 1, second, &handle, on_event), SD_OK);
  m.events().diagnostic(host, {"plogi", port});
  m.events().diagnostic(host, {"board"});
  ASSERT_TRUE(calls.wait(1));
  EXPECT_EQ(calls.take(), std::vector<std::string>{"second board 0 port 0000000000000000 8/1 nothing"});
  EXPECT_EQ(HCX_FreeDiagEnv(), 0u);
}

}  // namespace
