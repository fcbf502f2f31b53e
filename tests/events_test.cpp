// SPDX-License-Identifier: BSD-3-Clause
// Events from the socket to the ring and to registered functions. The messages are laid out by the simulated kernel
// or, where they are wrong on purpose, here.
#include "hcx_ioctl_event.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <malloc.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <latch>
#include <mutex>
#include <thread>
#include <utility>

#include "alloc_fault.h"
#include "board_fixture.h"
#include "hcx_netlink.h"

namespace {

using namespace std::chrono_literals;
using hcx::EventLock;
using Callback = void (*)();

// What registered functions were called with, in order.
struct Calls {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> lines;

  void add(const std::string &line) {
    const std::lock_guard guard(mutex);
    lines.push_back(line);
    changed.notify_all();
  }
  std::vector<std::string> wait(size_t count) {
    std::unique_lock guard(mutex);
    changed.wait_for(guard, 20s, [&] { return lines.size() >= count; });
    return lines;
  }
} calls;

std::string hex(const void *data, size_t size) {
  std::string text;
  char digits[3];
  for (size_t i = 0; i < size; ++i) {
    snprintf(digits, sizeof digits, "%02x", static_cast<const uint8_t *>(data)[i]);
    text += digits;
  }
  return text;
}

void on_link(uint32_t board, LINKINFO *link) {
  calls.add("link " + std::to_string(board) + " state " + std::to_string(link->a_linkState) + " did " +
            std::to_string(link->a_DID));
}
void on_rscn(uint32_t board, void *payload, uint32_t length, uint32_t same) {
  calls.add("rscn " + std::to_string(board) + " " + hex(payload, length) + " " + std::to_string(same));
}
void on_vport_rscn(uint32_t board, HBA_WWN wwpn, void *payload, uint32_t length) {
  calls.add("vport " + std::to_string(board) + " " + hex(wwpn.wwn, 8) + " " + hex(payload, length));
}
void on_dump(uint32_t board, void *out, uint32_t outsz) {
  calls.add("dump " + std::to_string(board) + " " + hex(out, outsz));
}
void on_temperature(uint32_t board, uint32_t code, uint32_t celsius) {
  calls.add("temperature " + std::to_string(board) + " " + std::to_string(code) + " " +
            std::to_string(celsius));
}
void on_ct(uint32_t board, void *request, uint32_t length, uint32_t tag, uint32_t type) {
  const uint8_t answer[] = {0xaa};
  const uint32_t sent = SendMgmtResponse(board, const_cast<uint8_t *>(answer), sizeof answer, tag);
  calls.add("ct " + std::to_string(board) + " " + hex(request, length) + " type " + std::to_string(type) +
            " sent " + std::to_string(sent));
}

template <class Function>
uint32_t add(uint32_t board, uint32_t mask, Function func, uint32_t outsz = 0, uint32_t type = 0) {
  return HCX_RegisterForEvent(board, mask, type, outsz, reinterpret_cast<Callback>(func), nullptr);
}

const std::vector<std::string> link_up = {"link 0 state 6 did 66048"};

class EventTest : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    three = &m.add_host({.number = 3, .port_id = 0x010200});
    four = &m.add_host({.number = 4, .port_id = 0x010300, .temp_sensor = false});
    m.add_host({.number = 7, .port_id = 0x010400});
    scan();
    calls.lines.clear();
  }
  void TearDown() override {
    for (uint32_t board = 0; board < kEventBoards; ++board)
      HCX_unRegisterForEvent(board, 0);
    net_link_exit();
    // A listener that was left in a callback takes its socket with it.
    EXPECT_TRUE(soon([&] { return m.netlink().sockets() == 0; }));
    EXPECT_EQ(m.processes().count(), 0u);
    BoardTest::TearDown();
  }
  static bool soon(const std::function<bool()> &condition) {
    for (int i = 0; i < 20000; ++i) {
      if (condition()) return true;
      std::this_thread::sleep_for(1ms);
    }
    return false;
  }
  static uint32_t register_ct() {
    return RegisterForCTEvents(0, 0xfa, reinterpret_cast<Callback>(on_ct), nullptr, nullptr);
  }
  uint32_t posted() {
    const EventLock lock;
    return hcx_host_list->hbaevt.cnt;
  }
  // Every event sent before this has gone through the listener once this one has.
  void settle() {
    const uint32_t before = marker_;
    marker_ = before + 1;
    m.events().post(*m.host(7), VOSKH_EVT_PORT_ONLINE, "");
    EXPECT_TRUE(soon([&] {
      const EventLock lock;
      return hcx_host_list->next->next->hbaevt.cnt >= marker_;
    })) << "the listener does not take events";
  }
  sim::Host *three = nullptr, *four = nullptr;
  uint32_t marker_ = 0;
};

TEST_F(EventTest, RingKeeps127AndCountsTurnsOfItsReader) {
  for (uint32_t i = 1; i <= 130; ++i)
    post_fc_event(3, i, VOSKH_EVT_RSCN, i);
  const auto &ring = hcx_host_list->hbaevt;
  EXPECT_EQ(ring.get, 3u);
  EXPECT_EQ(ring.put, 2u);
  EXPECT_EQ(ring.cnt, 130u);
  EXPECT_EQ(ring.missed, 0u);
  HBA_EVENTINFO events[200];
  uint32_t count = 0;
  EXPECT_EQ(GetEventBuffer(0, events, &count), 0u);
  EXPECT_EQ(ring.get, 3u) << "a count of 0 consumes nothing";
  count = 200;
  EXPECT_EQ(GetEventBuffer(0, events, &count), 0u);
  ASSERT_EQ(count, 127u);
  EXPECT_EQ(events[0].Event.RSCN_EventInfo.NPortPage, 4u);
  EXPECT_EQ(events[126].Event.RSCN_EventInfo.NPortPage, 130u);
  for (uint32_t i = 0; i < 128 + 127; ++i)
    post_fc_event(3, i, VOSKH_EVT_LINKUP, 0);
  EXPECT_EQ(ring.missed, 1u);
}

TEST_F(EventTest, BufferReportsFourKinds) {
  const struct {
    uint32_t code, data;
  } posted_events[] = {{1, 9}, {2, 9}, {3, 9}, {4, 9}, {5, 0x010500}, {0x202, 9}, {0xffff, 16}};
  for (const auto &event : posted_events)
    post_fc_event(3, 1, event.code, event.data);
  HBA_EVENTINFO events[8];
  uint32_t count = 8;
  EXPECT_EQ(GetEventBuffer(0, events, &count), 0u);
  ASSERT_EQ(count, 4u);
  const uint32_t expected[4][5] = {
      {2, 0x010200, 0, 0, 0}, {3, 0x010200, 0, 0, 0}, {5, 0x010200, 0x010500, 0, 0}, {0xffff, 0, 0, 0, 0}};
  EXPECT_EQ(memcmp(events, expected, sizeof expected), 0);
  expect_told(GetEventBuffer(9, events, &count), 1, "GetEventBuffer - no host on board 9");
  EXPECT_EQ(GetEventBuffer(0, nullptr, &count), 4u);
  EXPECT_EQ(GetEventBuffer(0, events, nullptr), 4u);
}

TEST_F(EventTest, EachKindCallsInItsShape) {
  ASSERT_EQ(net_link_init(), 0);
  sim::Host &vport = three->add_vport({.wwpn = 0x20000000000000aa, .host_number = 20});
  const uint32_t both = add(0, 0x3, on_link);
  EXPECT_EQ(both, 1u);
  m.events().link_down(*three);
  m.events().link_up(*three);
  ASSERT_EQ(calls.wait(2).size(), 2u);  // what waits for a registration goes with it
  HCX_unRegisterForEvent(0, 0);
  add(0, 0x2, on_rscn, 6);
  add(0, 0x40, on_vport_rscn, 64);
  add(0, 0x10, on_dump, 3);
  add(0, 0x20, on_temperature);
  m.events().rscn(*three, {0x010500});
  m.events().rscn(vport, {0x010600});
  m.events().dump(*three);
  m.events().temperature(*three, 2, 71);
  const std::vector<std::string> expected = {"link 0 state 1 did 66048",
                                             link_up[0],
                                             "rscn 0 610400080001 6",
                                             "vport 0 20000000000000aa 6104000800010600",
                                             "dump 0 000000",
                                             "temperature 0 2 71"};
  EXPECT_EQ(calls.wait(expected.size()), expected);
}

TEST_F(EventTest, ShortAndStrangeMessagesAreDropped) {
  ASSERT_EQ(net_link_init(), 0);
  add(0, 0x33, on_temperature, 8);
  const std::string good =
      m.events().message(3, 1, 0xffff, sim::native_word(32) + sim::native_word(1) + sim::native_word(2));
  auto with = [&](size_t at, char value) {
    std::string changed = good;
    changed[at] = value;
    return changed;
  };
  m.netlink().send(with(16, 2));
  m.netlink().send(with(17, 3));
  m.netlink().send(with(16 + 4, 7));
  m.netlink().send(good, 4711);
  m.netlink().send(m.events().message(3, 2, 0xffff, sim::native_word(8)));
  m.netlink().send(m.events().message(3, 2, 0xffff, sim::native_word(32) + sim::native_word(1)));
  m.netlink().send(m.events().message(3, 2, 0xffff, sim::native_word(2)));
  for (size_t size = 1; size < good.size(); ++size)
    m.netlink().send(good.substr(0, size));
  settle();
  EXPECT_TRUE(calls.lines.empty());
  for (const char *text :
       {"Bad Version #: 2", "transport x00000003 not", "NL TRANSPOPT Uknown Msg Type", "from port 4711",
        "length 8 to small for temp event", "is too short for an RSCN"}) {
    EXPECT_TRUE(m.logged(text)) << text;
  }
  EXPECT_EQ(posted(), 2u) << "the two of a known kind";
  // Two messages in one datagram, and rubbish behind them.
  m.netlink().send(good + good + "xyz");
  EXPECT_EQ(calls.wait(2).size(), 2u);
}

TEST_F(EventTest, RscnLengthIsBoundedByTheEvent) {
  uint32_t data[] = {2, 1000, 0x01020304};
  add(0, 0x2, on_rscn, 4096);
  signal_async_event_handler(3, 1, 0xffff, data, sizeof data);
  EXPECT_EQ(calls.lines, std::vector<std::string>{"rscn 0 " + hex(&data[2], 4) + " 4"});
  signal_async_event_handler(3, 1, 0xffff, nullptr, 4);
}

TEST_F(EventTest, IdsNameOneRegistration) {
  const auto link = on_link;
  for (uint32_t id = 1; id <= 5; ++id)
    EXPECT_EQ(add(0, 1, link), id);
  EXPECT_EQ(HCX_unRegisterForEvent(0, 3), 1u);
  EXPECT_EQ(hcx_RegEvent[0][2].event_id, 4u);
  EXPECT_EQ(hcx_RegEvent[0][3].event_id, 5u);
  EXPECT_EQ(add(0, 1, link), 3u) << "5 is taken";
  for (const uint32_t id : {6u, 7u, 8u})
    EXPECT_EQ(add(0, 1, link), id);
  EXPECT_EQ(add(0, 1, link), 0u) << "a ninth";
  EXPECT_EQ(add(0, 0x81, link), 0u);
  EXPECT_EQ(hcx_RegEventCnt[1] + hcx_RegEventCnt[2], 0u) << "nothing left of a call that failed";
  EXPECT_EQ(HCX_unRegisterForEvent(0, 0), 1u);
  EXPECT_EQ(add(0, 0x81, link), 1u);
  EXPECT_EQ(hcx_RegEvent[1][0].event_id, 9u);
  EXPECT_EQ(hcx_RegEvent[2][0].e_firstchild, 1u);
  EXPECT_EQ(HCX_unRegisterForEvent(0, 1), 1u);
  EXPECT_EQ(hcx_RegEventCnt[0] + hcx_RegEventCnt[1] + hcx_RegEventCnt[2], 0u);
  EXPECT_EQ(HCX_unRegisterForEvent(0, 1), 0u);
  EXPECT_EQ(HCX_unRegisterForEvent(32, 0), 0u);
  EXPECT_EQ(add(32, 1, link), 0u);
  EXPECT_EQ(add(UINT32_MAX, 1, link), 0u);
  EXPECT_EQ(add(0, 0x8, link), 0u);
  EXPECT_EQ(HCX_RegisterForEvent(0, 1, 0, 0, nullptr, nullptr), 0u);
  EXPECT_EQ(add(1, 0x20, link), 0u) << "no sensor";
  uint32_t zero = 0;
  EXPECT_EQ(unRegisterForCTEvent(0, &zero), 250u);
}

TEST_F(EventTest, CtRequestsComeThroughAChild) {
  ASSERT_EQ(net_link_init(), 0);
  uint32_t id = register_ct();
  ASSERT_EQ(id, 1u);
  EXPECT_EQ(m.processes().count(), 1u);
  m.events().ct(*three, 0xfb, "no");
  const uint32_t tag = m.events().ct(*three, 0xfa, "\x01\x02\x03");
  EXPECT_EQ(calls.wait(1), std::vector<std::string>{"ct 0 010203 type 250 sent 0"});
  EXPECT_EQ(m.events().ct_answers(*three), std::vector<std::string>{std::to_string(tag) + ":aa"});
  EXPECT_EQ(unRegisterForCTEvent(0, &id), 0u);
  EXPECT_EQ(m.processes().count(), 0u);
  EXPECT_TRUE(m.logged("removeRegEvent - done"));
}

TEST_F(EventTest, CtRegistrationsGoAsAWhole) {
  ASSERT_EQ(net_link_init(), 0);
  const auto ct = on_ct;
  // On three boards, one child each; then eight on one, and a ninth.
  const uint32_t all = add(0, 0x84, ct, 16, 0xfa);
  EXPECT_EQ(all, 1u);
  EXPECT_EQ(m.processes().count(), 3u);
  m.events().ct(*four, 0xfa, "\x09");
  EXPECT_EQ(calls.wait(1).front().substr(0, 16), "ct 1 09 type 250");
  EXPECT_EQ(HCX_unRegisterForEvent(7, all), 1u);
  EXPECT_EQ(m.processes().count(), 0u);
  // Link events reach a registration for both kinds.
  add(
      0, 0x5, +[]() { calls.add("both"); }, 16, 0xfa);
  m.events().link_up(*three);
  EXPECT_EQ(calls.wait(2).back(), "both");
  m.events().ct(*three, 0xfa, "\x09");
  EXPECT_EQ(calls.wait(3).back(), "both");
  for (uint32_t id = 2; id <= 8; ++id)
    EXPECT_EQ(add(0, 4, ct, 16, 0xfb), id);
  expect_told(add(0, 4, ct, 16, 0xfb), 0, "max events already registered");
  EXPECT_EQ(add(0, 0x84, ct, 16, 0xfb), 0u);
  EXPECT_EQ(add(5, 4, ct, 16, 0xfb), 0u) << "no such board";
  EXPECT_EQ(m.processes().count(), 8u) << "nothing left of calls that failed";
  // More than there is room for, and a child whose parent has gone.
  HCX_unRegisterForEvent(0, 0);
  const uint32_t small = add(0, 4, ct, 2, 0xfa);
  m.events().ct(*three, 0xfa, "\x01\x02\x03");
  EXPECT_EQ(calls.wait(4).back(), "ct 0 0102 type 250 sent 0");
  m.processes().orphan(static_cast<int>(hcx_RegEvent[0][0].e_pid));
  EXPECT_EQ(HCX_unRegisterForEvent(0, small), 1u);
  EXPECT_EQ(m.processes().count(), 0u);
}

// A callback may end the library altogether; what was registered is served after the next start.
TEST_F(EventTest, CallbackMayTearTheLibraryDown) {
  hcx_brdinfo boards[4];
  ASSERT_EQ(HCX_FreeDiagEnv(), 0u);
  ASSERT_EQ(HCX_InitDiagEnv(boards, 4), 3u);
  add(
      0, 1, +[]() {
        HCX_FreeDiagEnv();
        calls.add(hcx_host_list ? "still there" : "torn down");
      });
  for (int i = 0; i < 3; ++i)
    m.events().link_up(*three);
  EXPECT_EQ(calls.wait(1), std::vector<std::string>{"torn down"});
  EXPECT_TRUE(soon([&] { return m.netlink().sockets() == 0; }));
  EXPECT_EQ(calls.lines.size(), 1u) << "none of the others after the end";
  // What was left for it may come now, for there is no listener.
  HCX_unRegisterForEvent(0, 0);
  calls.lines.clear();
  ASSERT_EQ(HCX_InitDiagEnv(boards, 4), 3u);
  add(0, 1, on_link);
  m.events().link_up(*three);
  EXPECT_EQ(calls.wait(1), link_up);
  HCX_unRegisterForEvent(0, 0);
  HCX_FreeDiagEnv();
}

std::latch stop_is_over{1};

// A callback that waits for the thread that stops the listener cannot hold it up.
TEST_F(EventTest, StopIsBoundedThoughACallbackHangs) {
  hcx::listener_patience = 20;
  hcx_brdinfo boards[4];
  HCX_FreeDiagEnv();
  m.vfs().put_text("/tmp/libhcx_syslog_enable", "4fff\n", 0644);
  ASSERT_EQ(HCX_InitDiagEnv(boards, 4), 3u);
  add(
      0, 1, +[]() {
        const hcx::HostRef host = hcx::board_host(0);
        calls.add("called");
        stop_is_over.wait();
        calls.add(host && host->id == 3 ? "its host is still there" : "no host");
      });
  const hcx_host *before = hcx_host_list;
  {
    const struct Over {
      ~Over() { stop_is_over.count_down(); }
    } over;
    {
      const std::lock_guard both_at_once(m.mutex());
      m.events().link_up(*three);
      m.events().link_up(*three);
    }
    ASSERT_EQ(calls.wait(1).size(), 1u);
    HCX_FreeDiagEnv();
    EXPECT_EQ(hcx::listeners_left_behind(), 1);
    EXPECT_EQ(hcx_host_list, nullptr);
    ASSERT_EQ(HCX_InitDiagEnv(boards, 4), 3u) << "another start while it hangs";
    EXPECT_NE(hcx_host_list, before);
  }
  // The event that was left goes to the next listener, once the one that hangs has come back.
  EXPECT_EQ(calls.wait(4), (std::vector<std::string>{"called", "its host is still there", "called",
                                                     "its host is still there"}));
  EXPECT_TRUE(soon([] { return hcx::listeners_left_behind() == 0; }));
  EXPECT_TRUE(m.logged("the listener is left in a callback"));
  HCX_FreeDiagEnv();
}

// A signal that reaches another thread is passed on: no callback runs on that thread.
TEST_F(EventTest, CallbacksRunInTheListenerOnly) {
  static std::atomic<pthread_t> caller;
  ASSERT_EQ(net_link_init(), 0);
  kill(getpid(), SIGUSR1);  // a stray one, before anybody is registered
  settle();
  add(
      0, 1, +[]() { caller = pthread_self(); });
  m.events().link_up(*three);
  for (int i = 0; i < 200; ++i)
    pthread_kill(pthread_self(), SIGUSR1);
  ASSERT_TRUE(soon([] { return caller != pthread_t{}; }));
  EXPECT_TRUE(pthread_equal(caller, ctxt.thread));
  // Called as a function it sweeps at once, in the thread that calls.
  caller = pthread_t{};
  net_link_exit();
  uint32_t data = 0;
  {
    const hcx::EventSignalBlock blocked;
    signal_async_event_handler(3, 1, VOSKH_EVT_LINKUP, &data, 4);
  }
  EXPECT_TRUE(pthread_equal(caller, pthread_self())) << "no listener: delivered before the call returns";
  EventHandler(SIGUSR1);
  EventHandlerBSG(SIGUSR1);
}

// A sweep that finds another at it leaves its work to that one, which goes round once more.
TEST_F(EventTest, BusySweepsCountTheSignalsTheyMiss) {
  add(0, 1, on_link);
  hcx_eh_busy = hcx_sgio_eh_busy = 1;
  uint32_t data = 0;
  signal_async_event_handler(3, 1, VOSKH_EVT_LINKUP, &data, 4);
  EventHandler(SIGUSR1);
  EventHandlerBSG(SIGUSR1);
  EXPECT_TRUE(calls.lines.empty());
  EXPECT_EQ(hcx_miss_sig, 2u);
  EXPECT_EQ(hcx_sgio_miss_sig, 1u);
  for (const char *caller : {"EventHandler", "EventHandlerBSG"})
    EXPECT_TRUE(m.logged(std::string(caller) + " - busy sig 10 pid " + std::to_string(getpid()))) << caller;
  hcx_eh_busy = hcx_sgio_eh_busy = 0;
  EventHandler(SIGUSR1);
  EXPECT_EQ(calls.lines, link_up);
  EXPECT_TRUE(m.logged("EventHandlerBSG - retrying missed 1 signals"));
  EXPECT_EQ(hcx_eh_busy + hcx_miss_sig + hcx_sgio_eh_busy + hcx_sgio_miss_sig, 0u);
}

// A callback stops the listener that another thread is waiting for.
TEST_F(EventTest, TwoMayStopTheListenerAtOnce) {
  ASSERT_EQ(net_link_init(), 0);
  add(
      0, 1, +[]() {
        EXPECT_EQ(HCX_unRegisterForEvent(0, 0), 1u) << "itself";
        calls.add("called");
        while (std::atomic_ref<int>(ctxt.thread_running).load() >= 0)
          std::this_thread::yield();
        net_link_exit();
        calls.add("came back");
      });
  m.events().link_up(*three);
  ASSERT_EQ(calls.wait(1).size(), 1u);
  net_link_exit();
  EXPECT_EQ(calls.lines.size(), 2u) << "the stop has waited for the callback";
  EXPECT_EQ(ctxt.handle, nullptr);
  EXPECT_EQ(m.netlink().sockets(), 0u);
}

std::atomic<int> signals_seen{0};

// The child's signal has gone by while the library was stopped. At the next start the boards have no numbers yet when
// the listener begins; the request is fetched once they have.
TEST_F(EventTest, CtRequestsWaitForTheNumbersOfTheBoards) {
  ASSERT_NE(register_ct(), 0u);
  HCX_FreeDiagEnv();
  signal(SIGUSR1, [](int) { ++signals_seen; });
  m.events().ct(*three, 0xfa, "\x07");
  ASSERT_TRUE(soon([] { return signals_seen == 1; }));
  hcx_sysfs_scan_hosts(&hcx_host_list);
  ASSERT_EQ(net_link_init(), 0);
  settle();
  settle();
  hcx_brdinfo boards[4];
  ASSERT_EQ(HCX_InitDiagEnv(boards, 4), 3u);
  EXPECT_EQ(calls.wait(1), std::vector<std::string>{"ct 0 07 type 250 sent 0"});
  HCX_unRegisterForEvent(0, 0);
  HCX_FreeDiagEnv();
}

// A forked copy of the process has the registration, but the child and what it waits for are not its own.
TEST_F(EventTest, CtRequestsOfAnotherProcessAreLeftToIt) {
  ASSERT_NE(register_ct(), 0u);
  RegEvent &record = hcx_RegEvent[0][0];
  const uint32_t owner = std::exchange(record.e_pad, 1);
  signal(SIGUSR1, [](int) { ++signals_seen; });
  m.events().ct(*three, 0xfa, "\x07");
  ASSERT_TRUE(soon([] { return signals_seen == 1; }));
  EventHandlerBSG(SIGUSR1);
  EXPECT_TRUE(calls.lines.empty());
  record.e_pad = owner;
  EventHandlerBSG(SIGUSR1);
  EXPECT_EQ(calls.lines, std::vector<std::string>{"ct 0 07 type 250 sent 0"});
}

// An RSCN of a virtual port whose name can no longer be read comes in the shape of virtual ports all the same.
TEST_F(EventTest, VirtualPortsKeepTheirShapeWithoutName) {
  sim::Host &vport = three->add_vport({.wwpn = 0x20000000000000aa, .host_number = 20});
  add(0, 0x40, on_vport_rscn, 64);
  add(0, 0x2, on_rscn, 64);
  vport.set_fc("port_name", "");
  uint32_t data[] = {2, 4, 0};
  memcpy(&data[2], "\x61\x04\x00\x04", 4);
  signal_async_event_handler(20, 1, 0xffff, data, sizeof data);
  EXPECT_EQ(calls.lines, std::vector<std::string>{"vport 0 0000000000000000 61040004"});
  signal_async_event_handler(99, 1, 0xffff, data, sizeof data);
  EXPECT_EQ(calls.lines.size(), 1u);
}

TEST_F(EventTest, WithoutMemoryOnlyTheRegistrationConcernedLosesTheEvent) {
  add(0, 0x2, on_rscn, 64);
  add(0, 0x2, on_rscn, 64);
  uint32_t data[] = {2, 4, 0};
  // Node and payload of the first, then of the second.
  for (int nth = 1; nth <= 4; ++nth) {
    calls.lines.clear();
    alloc_fault::fail_nth(nth);
    signal_async_event_handler(3, 1, 0xffff, data, sizeof data);
    EXPECT_TRUE(alloc_fault::take_hit());
    EXPECT_EQ(calls.lines.size(), 1u) << nth;
  }
  alloc_fault::fail_nth(1);
  EXPECT_EQ(add(0, 0x10, on_dump, 8), 0u);
  EXPECT_TRUE(alloc_fault::take_hit());
  // A function that wants an output area is not called without one.
  HCX_unRegisterForEvent(0, 0);
  add(0, 0x10, on_dump, 8);
  calls.lines.clear();
  uint32_t dump = 16;
  for (const int fails : {2, 0}) {
    {
      const EventLock lock;
      free(std::exchange(hcx_RegEvent[0][0].e_out, nullptr));
    }
    alloc_fault::fail_nth(fails);
    signal_async_event_handler(3, 1, 0xffff, &dump, sizeof dump);
    EXPECT_EQ(alloc_fault::take_hit(), fails != 0);
  }
  EXPECT_EQ(calls.lines, std::vector<std::string>{"dump 0 0000000000000000"});
  for (const char *line :
       {"could not allocate RSCN buffer of 4 size", "brd 0 could not allocate host event memory",
        "netlink_register_for_event - pid ", "EventHandler - out of memory board 0 event 1"})
    EXPECT_TRUE(m.logged(line)) << line;
}

TEST_F(EventTest, BurstLargerThanTheBufferIsCounted) {
  m.netlink().buffer = 1000;
  ASSERT_EQ(net_link_init(), 0);
  {
    const std::lock_guard stalled(m.mutex());
    for (int i = 0; i < 50; ++i)
      m.events().post(*three, VOSKH_EVT_LINKUP, "");
  }
  for (int i = 0; i < 5000 && hcx::netlink_overruns() == 0; ++i)
    std::this_thread::sleep_for(1ms);
  EXPECT_GT(hcx::netlink_overruns(), 0u);
  m.netlink().buffer = 1 << 20;
  settle();
}

TEST_F(EventTest, StartFailuresLeaveNothing) {
  for (const auto &[verb, line] : {std::pair{sim::Verb::netlink_alloc, "Failed to allocate nl_handle"},
                                   {sim::Verb::netlink_connect, "nl_connect failed"}}) {
    m.fail({.verb = verb});
    expect_told(net_link_init(), -1, line);
    EXPECT_EQ(ctxt.handle, nullptr);
    EXPECT_EQ(m.netlink().sockets(), 0u);
    m.clear_faults();
  }
  m.fail({.verb = sim::Verb::spawn});
  expect_told(register_ct(), 0, "fork failed");
}

size_t entries_of(const char *directory) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

TEST_F(EventTest, ConcurrencyStartAndStop) {
  m.vfs().put_text("/tmp/libhcx_syslog_enable", "0\n", 0644);
  libhcx_syslog_enable(0);
  ASSERT_EQ(net_link_init(), 0);
  net_link_exit();
  const size_t threads = entries_of("/proc/self/task"), files = entries_of("/proc/self/fd");
  const size_t memory = mallinfo2().uordblks;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(net_link_init(), 0);
    ASSERT_EQ(net_link_init(), 0);
    if (i % 3 == 0) m.events().post(*three, VOSKH_EVT_LINKUP, "");
    net_link_exit();
  }
  EXPECT_EQ(m.netlink().sockets(), 0u);
  // A thread that has been joined may stand there a moment longer.
  EXPECT_TRUE(soon([&] { return entries_of("/proc/self/task") == threads; }));
  EXPECT_EQ(entries_of("/proc/self/fd"), files);
  EXPECT_LT(mallinfo2().uordblks, memory + 100000) << "less than a hundred bytes a round";
}

// The link bounces while the request that makes it do so is still being written. Delivery rescans the host, which needs
// the lock that a parameter's change holds for reading.
TEST_F(EventTest, ConcurrencyResetsBringLinkEvents) {
  alarm(100);
  ASSERT_EQ(net_link_init(), 0);
  ASSERT_NE(add(0, 0x1, on_link), 0u);
  const auto bounce = [&](const std::string &) {
    m.events().link_down(*three);
    m.events().link_up(*three);
    return 0;
  };
  for (const char *name : {"issue_reset", "vosk_topology"})
    m.vfs().on_write(three->scsi_dir() + name, bounce);
  for (size_t round = 1; round <= 10; ++round) {
    EXPECT_EQ(HCX_ResetAdapter(0, 2), 0u);
    EXPECT_EQ(SetCfgParam(0, 4, 1), 0u);
    ASSERT_EQ(calls.wait(4 * round).size(), 4 * round);
  }
  alarm(0);
}

std::atomic<uint32_t> temperatures{0};

TEST_F(EventTest, ConcurrencyStress) {
  constexpr uint32_t events = 30000;
  alarm(100);  // the watchdog: a deadlock ends the test, not the suite
  m.vfs().put_text("/tmp/libhcx_syslog_enable", "0\n", 0644);
  libhcx_syslog_enable(0);
  ASSERT_EQ(net_link_init(), 0);
  temperatures = 0;
  add(
      0, 0x20, +[](uint32_t, uint32_t, uint32_t) { ++temperatures; });
  m.netlink().buffer = size_t{1} << 30;
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      HBA_PORTATTRIBUTES attributes;
      HBA_EVENTINFO buffer[16];
      while (!done) {
        uint32_t count = 16;
        GetAdapterPortAttributes(0, 0, &attributes);
        GetEventBuffer(0, buffer, &count);
        kill(getpid(), SIGUSR1);
      }
    });
  threads.emplace_back([&] {
    while (!done) {
      const uint32_t id = add(
          0, 0x20, +[](uint32_t, uint32_t, uint32_t) {});
      EXPECT_NE(id, 0u);
      HCX_unRegisterForEvent(0, id);
    }
  });
  for (uint32_t i = 0; i < events; ++i)
    m.events().temperature(*three, 1, i);
  for (int i = 0; i < 90000 && temperatures < events; ++i)
    std::this_thread::sleep_for(1ms);
  done = true;
  for (auto &thread : threads)
    thread.join();
  EXPECT_EQ(temperatures, events);
  alarm(0);
}

// ---- The real machine's own sockets and children ----

// Any netlink protocol on which processes may send to each other.
constexpr int user_protocol = 2;

TEST(RealNetlink, WaitsReceivesAndIsWoken) {
  hcx::sysio::Machine &real = hcx::sysio::machine();
  hcx::sysio::Netlink *socket = real.netlink_alloc();
  ASSERT_NE(socket, nullptr);
  const int rc = real.netlink_connect(socket, user_protocol, 1);
  if (rc != 0) {
    real.netlink_free(socket);
    GTEST_SKIP() << "no such sockets here: " << strerror(-rc);
  }
  sigset_t none;
  sigemptyset(&none);
  hcx::sysio::Datagram datagram;
  EXPECT_EQ(real.netlink_receive(socket, &datagram), -EAGAIN);

  const int sender = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, user_protocol);
  sockaddr_nl group = {};
  group.nl_family = AF_NETLINK;
  group.nl_groups = 1;
  const char text[] = "sixteen bytes or more of anything";
  auto send = [&] {
    return sendto(sender, text, sizeof text, 0, reinterpret_cast<sockaddr *>(&group), sizeof group);
  };
  // Whoever is in the group has it, though nobody in the kernel takes it.
  ASSERT_TRUE(send() > 0 || errno == ECONNREFUSED) << strerror(errno);
  EXPECT_EQ(real.netlink_wait(socket, &none), 1);
  EXPECT_EQ(real.netlink_receive(socket, &datagram), static_cast<ssize_t>(sizeof text));
  EXPECT_EQ(memcmp(datagram.bytes, text, sizeof text), 0);
  EXPECT_NE(datagram.sender, 0u) << "not the kernel";
  free(datagram.bytes);

  std::thread waker([&] { real.netlink_wake(socket); });
  while (real.netlink_wait(socket, &none) == 1) {
    while (real.netlink_receive(socket, &datagram) > 0)
      free(datagram.bytes);
  }
  waker.join();
  EXPECT_EQ(real.netlink_wait(socket, &none), 0) << "woken for good";
  EXPECT_FALSE(real.netlink_wait_done(socket, 1));
  real.netlink_done(socket);
  EXPECT_TRUE(real.netlink_wait_done(socket, 1000));
  ::close(sender);
  real.netlink_close(socket);
  real.netlink_free(socket);
}

void app_handler(int) {}

// What a child of the real machine must not have of its parent.
int look_around(void *arg, int pid) {
  const auto *pipe_end = static_cast<const int *>(arg);
  struct sigaction now;
  sigset_t blocked;
  if (pid != getpid() || hcx::sysio::machine().parent_pid() != pipe_end[1]) return 1;
  if (::fcntl(pipe_end[0], F_GETFD) >= 0) return 2;
  if (sigaction(SIGUSR1, nullptr, &now) < 0 || now.sa_handler != SIG_IGN) return 3;
  if (sigaction(SIGTERM, nullptr, &now) < 0 || now.sa_handler != SIG_DFL) return 4;
  if (sigaction(SIGWINCH, nullptr, &now) < 0 || now.sa_handler != SIG_IGN) return 5;
  if (sigprocmask(SIG_BLOCK, nullptr, &blocked) < 0 || sigismember(&blocked, SIGUSR1)) return 6;
  return 77;
}

TEST(RealChildren, StartWithNothingOfTheirParent) {
  hcx::sysio::Machine &real = hcx::sysio::machine();
  signal(SIGTERM, app_handler);
  signal(SIGWINCH, app_handler);
  const hcx::EventSignalBlock blocked;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  int given[] = {ends[0], getpid()};
  int pid = real.spawn(look_around, given, sizeof given);
  ASSERT_GT(pid, 0);
  int status = 0;
  EXPECT_EQ(real.wait_child(pid, &status, 0), pid);
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 77);
  EXPECT_EQ(real.wait_child(pid, &status, 0), -ECHILD);
  pid = real.spawn([](void *, int) { return pause(); }, nullptr, 0);
  EXPECT_EQ(real.wait_child(pid, &status, WNOHANG), 0);
  EXPECT_EQ(real.signal(pid, SIGKILL), 0);
  EXPECT_EQ(real.wait_child(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status));
  for (const int nobody : {-1, 0, 1})
    EXPECT_EQ(real.signal(nobody, SIGKILL), -ESRCH) << "never a group, never init";
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
