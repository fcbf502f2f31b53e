// SPDX-License-Identifier: BSD-3-Clause
// Events per second, from a socket that is full of them to the last one handled by the listener: into the ring only,
// and on to one, or eight, registered functions. The socket is the simulated machine's.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "hcx_ioctl_event.h"
#include "libhcx.h"
#include "sim_machine.h"

namespace {

constexpr uint32_t event_count = 20000;

std::atomic<uint32_t> called{0};

void count_call(uint32_t, uint32_t, uint32_t) {
  called.fetch_add(1, std::memory_order_relaxed);
}

uint32_t posted() {
  const hcx::EventLock lock;
  return hcx_host_list->hbaevt.cnt;
}

void events(benchmark::State &state) {
  const auto registrations = static_cast<uint32_t>(state.range(0));
  sim::Machine machine;
  sim::Host &host = machine.add_host({.number = 3});
  machine.netlink().buffer = size_t{1} << 30;
  const sim::Installed installed(machine);
  hcx_brdinfo board;
  if (HCX_InitDiagEnv(&board, 1) != 1) return state.SkipWithError("start-up failed");
  for (uint32_t i = 0; i < registrations; ++i) {
    HCX_RegisterForEvent(0, FC_REG_TEMPERATURE_EVENT, 0, 0, reinterpret_cast<void (*)()>(count_call),
                         nullptr);
  }
  const std::string message =
      machine.events().message(host.number(), 1, VOSKH_EVT_VENDOR_UNIQUE,
                               sim::native_word(0x20) + sim::native_word(1) + sim::native_word(2));
  for (auto _ : state) {
    const uint32_t before = posted();
    called = 0;
    std::chrono::steady_clock::time_point start;
    {
      // The listener cannot take anything before all is there.
      const std::lock_guard held(machine.mutex());
      for (uint32_t i = 0; i < event_count; ++i)
        machine.netlink().send(message);
      start = std::chrono::steady_clock::now();
    }
    while (posted() - before < event_count || called < registrations * event_count)
      std::this_thread::yield();
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  HCX_unRegisterForEvent(0, 0);
  HCX_FreeDiagEnv();
  state.SetItemsProcessed(state.iterations() * event_count);
}

}  // namespace

BENCHMARK(events)
    ->ArgName("registrations")
    ->Arg(0)
    ->Arg(1)
    ->Arg(8)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
