// SPDX-License-Identifier: BSD-3-Clause
// Events from the socket to the ring and to registered functions. The messages are laid out by the simulated kernel
// or, where they are wrong on purpose, here.
#include "hcx_ioctl_event.h"

#include <signal.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

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

uint32_t add(uint32_t board, uint32_t mask, Callback func, uint32_t outsz = 0, uint32_t type = 0) {
  return HCX_RegisterForEvent(board, mask, type, outsz, func, nullptr);
}

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
    EXPECT_EQ(m.netlink().sockets(), 0u);
    EXPECT_EQ(m.processes().count(), 0u);
    BoardTest::TearDown();
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
    for (int i = 0; i < 20000; ++i) {
      {
        const EventLock lock;
        if (hcx_host_list->next->next->hbaevt.cnt >= marker_) return;
      }
      std::this_thread::sleep_for(1ms);
    }
    FAIL() << "the listener does not take events";
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
  EXPECT_EQ(GetEventBuffer(9, events, &count), 1u);
  EXPECT_EQ(GetEventBuffer(0, nullptr, &count), 1u);
  EXPECT_EQ(GetEventBuffer(0, events, nullptr), 1u);
  EXPECT_TRUE(m.logged("GetEventBuffer - no host on board 9"));
}

TEST_F(EventTest, EachKindCallsInItsShape) {
  ASSERT_EQ(net_link_init(), 0);
  sim::Host &vport = three->add_vport({.wwpn = 0x20000000000000aa, .host_number = 20});
  const uint32_t both = add(0, 0x3, reinterpret_cast<Callback>(on_link));
  EXPECT_EQ(both, 1u);
  m.events().link_down(*three);
  m.events().link_up(*three);
  settle();
  HCX_unRegisterForEvent(0, 0);
  add(0, 0x2, reinterpret_cast<Callback>(on_rscn), 6);
  add(0, 0x40, reinterpret_cast<Callback>(on_vport_rscn), 64);
  add(0, 0x10, reinterpret_cast<Callback>(on_dump), 3);
  add(0, 0x20, reinterpret_cast<Callback>(on_temperature));
  m.events().rscn(*three, {0x010500});
  m.events().rscn(vport, {0x010600});
  m.events().dump(*three);
  m.events().temperature(*three, 2, 71);
  const std::vector<std::string> expected = {"link 0 state 1 did 66048",
                                             "link 0 state 6 did 66048",
                                             "rscn 0 610400080001 6",
                                             "vport 0 20000000000000aa 6104000800010600",
                                             "dump 0 000000",
                                             "temperature 0 2 71"};
  EXPECT_EQ(calls.wait(expected.size()), expected);
}

TEST_F(EventTest, ShortAndStrangeMessagesAreDropped) {
  ASSERT_EQ(net_link_init(), 0);
  add(0, 0x33, reinterpret_cast<Callback>(on_temperature), 8);
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
  add(0, 0x2, reinterpret_cast<Callback>(on_rscn), 4096);
  signal_async_event_handler(3, 1, 0xffff, data, sizeof data);
  EXPECT_EQ(calls.lines, std::vector<std::string>{"rscn 0 " + hex(&data[2], 4) + " 4"});
  signal_async_event_handler(3, 1, 0xffff, nullptr, 4);
}

TEST_F(EventTest, IdsNameOneRegistration) {
  const auto link = reinterpret_cast<Callback>(on_link);
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
  EXPECT_EQ(add(0, 1, nullptr), 0u);
  EXPECT_EQ(add(1, 0x20, link), 0u) << "no sensor";
  uint32_t zero = 0;
  EXPECT_EQ(unRegisterForCTEvent(0, &zero), 250u);
}

TEST_F(EventTest, CtRequestsComeThroughAChild) {
  ASSERT_EQ(net_link_init(), 0);
  uint32_t id = RegisterForCTEvents(0, 0xfa, reinterpret_cast<Callback>(on_ct), nullptr, nullptr);
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

TEST_F(EventTest, StrayAndForwardedSignalsHarmNobody) {
  ASSERT_EQ(net_link_init(), 0);
  kill(getpid(), SIGUSR1);
  settle();
  add(0, 1, reinterpret_cast<Callback>(on_link));
  for (int i = 0; i < 100; ++i)
    kill(getpid(), SIGUSR1);
  m.events().link_up(*three);
  EXPECT_EQ(calls.wait(1).size(), 1u);
  // The library stops and starts; the registration stays and is served.
  net_link_exit();
  ASSERT_EQ(net_link_init(), 0);
  m.events().link_up(*three);
  EXPECT_EQ(calls.wait(2).size(), 2u);
}

TEST_F(EventTest, CallbacksMayUnregisterThemselvesAndStopTheListener) {
  ASSERT_EQ(net_link_init(), 0);
  add(
      0, 1, +[]() {
        EXPECT_EQ(HCX_unRegisterForEvent(0, 0), 1u);
        EXPECT_EQ(HCX_RegisterForEvent(0, 1, 0, 0, reinterpret_cast<Callback>(on_link), nullptr), 1u);
        net_link_exit();
        calls.add("stopped");
      });
  m.events().link_up(*three);
  EXPECT_EQ(calls.wait(1), std::vector<std::string>{"stopped"});
  for (int i = 0; i < 5000 && m.netlink().sockets() != 0; ++i)
    std::this_thread::sleep_for(1ms);
  EXPECT_EQ(m.netlink().sockets(), 0u);
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
  for (const sim::Verb verb : {sim::Verb::netlink_alloc, sim::Verb::netlink_connect}) {
    m.fail({.verb = verb});
    EXPECT_EQ(net_link_init(), -1);
    m.clear_faults();
    EXPECT_EQ(ctxt.handle, nullptr);
    EXPECT_EQ(m.netlink().sockets(), 0u);
  }
  EXPECT_TRUE(m.logged("Failed to allocate nl_handle"));
  EXPECT_TRUE(m.logged("nl_connect failed"));
  m.fail({.verb = sim::Verb::spawn});
  EXPECT_EQ(RegisterForCTEvents(0, 0xfa, reinterpret_cast<Callback>(on_ct), nullptr, nullptr), 0u);
  EXPECT_TRUE(m.logged("fork failed"));
}

TEST_F(EventTest, ConcurrencyStartAndStop) {
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(net_link_init(), 0);
    ASSERT_EQ(net_link_init(), 0);
    if (i % 3 == 0) m.events().post(*three, VOSKH_EVT_LINKUP, "");
    net_link_exit();
  }
  EXPECT_EQ(m.netlink().sockets(), 0u);
}

// The link bounces while the request that makes it do so is still being written. Delivery rescans the host, which needs
// the lock that a parameter's change holds for reading.
TEST_F(EventTest, ConcurrencyResetsBringLinkEvents) {
  alarm(100);
  ASSERT_EQ(net_link_init(), 0);
  ASSERT_NE(add(0, 0x1, reinterpret_cast<Callback>(on_link)), 0u);
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
  constexpr uint32_t events = 100000;
  alarm(100);  // the watchdog: a deadlock ends the test, not the suite
  m.vfs().put_text("/tmp/libhcx_syslog_enable", "0\n", 0644);
  libhcx_syslog_enable(0);
  ASSERT_EQ(net_link_init(), 0);
  temperatures = 0;
  add(0, 0x20, reinterpret_cast<Callback>(+[](uint32_t, uint32_t, uint32_t) { ++temperatures; }));
  m.netlink().buffer = size_t{1} << 30;
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i)
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
      const uint32_t id = add(0, 0x20, reinterpret_cast<Callback>(+[](uint32_t, uint32_t, uint32_t) {}));
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

}  // namespace
