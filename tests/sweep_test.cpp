// SPDX-License-Identifier: BSD-3-Clause
// The fault sweep: every exported call, with the first, second, third ... thing that it asks of the machine or of the
// allocator failing, once and from then on. Whatever the call then says, nothing may be left behind or half done, and
// the same call works again. HCX_SWEEP=NAME in the environment sweeps one call only.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "calls/calls.h"
#include "faulty_machine.h"
#include "hcx_ioctl_event.h"
#include "libhcx.h"
#include "sim_mbox.h"

namespace {

using alloc_fault::Pause;
using calls::Call;
using calls::Result;

// Every fault up to this one, then in growing steps. Where each step is many times slower, on the emulated processor of
// the other byte order and under the sanitizers, few do: the plain build has already tried all of them.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__) || __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr int kDense = 4;
#else
constexpr int kDense = 40;
#endif
constexpr int next(int n) {
  return n < kDense ? n + 1 : n + std::max(n / 4, 2);
}

// Exported names that are no calls.
const std::set<std::string> kObjects = {
    "hcx_host_list", "hcx_host_count", "libhcx_logging_enable", "sysfs_ver",   "MMM_Window",
    "MMM_Sysfs",     "MMM_Netlink",    "MMM_BSG_ioctl",         "MMM_BSG_dev",
};

class SensibleArguments final : public calls::Arguments {
 public:
  SensibleArguments() {
    calls::set_name(&local, calls::kLocal);
    calls::set_name(&target, calls::kTarget);
    calls::set_name(&vport, calls::kVport);
  }
  uint64_t choose(uint64_t sensible, uint64_t, uint64_t) override { return sensible; }
  void scramble(void *, size_t) override {}
  uint8_t *bytes(size_t size) override {
    const Pause pause;
    blocks_.emplace_back(std::make_unique<uint8_t[]>(size), size);
    return blocks_.back().first.get();
  }
  void *heap(size_t size) override {
    const Pause pause;
    return calloc(1, size);
  }
  void fault(const char *what) override {
    const Pause pause;
    ADD_FAILURE() << what << " claims more than there is room for";
  }
  // What all the buffers hold.
  [[nodiscard]] std::string contents() const {
    std::string all;
    for (const auto &[block, size] : blocks_)
      all.append(reinterpret_cast<const char *>(block.get()), size);
    return all;
  }

 private:
  std::vector<std::pair<std::unique_ptr<uint8_t[]>, size_t>> blocks_;
};

// Standard output goes nowhere while one lives; failures are reported there.
class Quiet {
 public:
  Quiet() : kept_(dup(1)), nowhere_(::open("/dev/null", O_WRONLY | O_CLOEXEC)) {
    fflush(stdout);
    dup2(nowhere_, 1);
  }
  Quiet(const Quiet &) = delete;
  Quiet &operator=(const Quiet &) = delete;
  ~Quiet() {
    fflush(stdout);
    dup2(kept_, 1);
    close(kept_);
    close(nowhere_);
  }

 private:
  int kept_, nowhere_;
};

// What fails. A fault of the allocator has no verb.
struct Mode {
  const char *name;
  bool memory = false;
  bool lasting = false;
  bool half = false;
  bool each_verb = false;

  friend std::ostream &operator<<(std::ostream &out, const Mode &mode) { return out << mode.name; }
};

const Mode kModes[] = {
    {.name = "OneCallFails"},
    {.name = "CallsFailFromThenOn", .lasting = true},
    {.name = "OneVerbFailsFromThenOn", .lasting = true, .each_verb = true},
    {.name = "HalfIsMoved", .half = true},
    {.name = "HalfIsMovedFromThenOn", .lasting = true, .half = true},
    {.name = "OneAllocationFails", .memory = true},
    {.name = "AllocationsFailFromThenOn", .memory = true, .lasting = true},
};

std::vector<Call> all_rows() {
  std::vector<Call> rows;
  for (const auto table : {calls::files(), calls::adapter(), calls::services()})
    rows.insert(rows.end(), table.begin(), table.end());
  return rows;
}

class Sweep : public testing::TestWithParam<Mode> {
 protected:
  static constexpr char kConf[] = "/etc/wardend.conf", kTemp[] = "/etc/wardend.conf~";

  // An SLI-4 board with two targets and an initiator behind a fabric, an SLI-3 board and an FCoE one.
  void SetUp() override {
    sim::Host &fc = m.add_host({.number = 3,
                                .wwpn = calls::kLocal,
                                .wwnn = calls::kLocal,
                                .fabric = 0x1000000000fab000,
                                .port_id = 0x010200,
                                .auth = true});
    fc.add_fabric_ports();
    sim::Rport &target = fc.add_rport(
        {.wwpn = calls::kTarget, .wwnn = calls::kTarget, .port_id = calls::kTargetId, .target_id = 0});
    target.add_lun();
    target.add_lun({.lun = 1});
    fc.add_rport({.port_id = 0x010204, .roles = "FCP Initiator"});
    m.add_host({.number = 4, .sli = 3, .slimem = true}).add_rport().add_lun();
    m.add_host({.number = 5, .protocol = "fcoe", .fabric = 0x1000000000fab000});
    // Who waits for events waits in a child; anybody else is answered at once.
    constexpr uint32_t set_event = 1;
    const sim::BsgHandler waits = m.bsg().vendor(set_event);
    m.bsg().on_vendor(set_event, [waits](sim::BsgCall &call) {
      if (sim::Processes::is_child()) waits(call);
    });
    calls::number_boards();
    refresh();
    inventory_ = inventory();
    pthread_sigmask(SIG_BLOCK, nullptr, &signals_);
    for (const int host : {3, 4, 5})
      flash_[host] = sim::flash_region(*m.host(host), 23);
    rewind();
  }
  void TearDown() override {
    HCX_FreeDiagEnv();
    EXPECT_EQ(m.open_fds(), 0u);
  }

  static void refresh() {
    for (uint32_t board = 0; board < 3; ++board)
      RefreshInformation(board);
  }
  // The files and the flash as they were at first.
  void rewind() {
    m.vfs().put_text(kConf,
                     "CONFIG 10000000C9000003 5006016000000001 45 1 0 1:0:0:0 1:2:0:0 1:0:0:0:0:0:0:0 0\n"
                     "PASSWORD 10000000C9000003 5006016000000001 1 secretsecret 2 0102030405060708\n",
                     0600);
    if (m.vfs().exists(kTemp)) m.vfs().remove(kTemp);
    for (const auto &[host, bytes] : flash_)
      sim::set_flash_region(*m.host(host), 23, bytes);
    m.clear_records();
    libhcx_logging_enable = 0x4fff;
  }
  std::vector<std::string> files() {
    std::vector<std::string> all = {m.vfs().text(kConf)};
    for (const auto &[number, bytes] : flash_)
      all.push_back(sim::flash_region(*m.host(number), 23).value_or("none"));
    return all;
  }

  // The inventory as lines, its links checked on the way.
  static std::set<std::string> inventory() {
    std::set<std::string> lines;
    const auto add = [&](std::initializer_list<const char *> words) {
      std::string line;
      for (const char *word : words)
        line.append(word ? word : "-").append(" ");
      lines.insert(line);
    };
    for (const hcx_host *host = hcx_host_list; host; host = host->next) {
      EXPECT_TRUE(!host->next || host->next->id > host->id);
      const std::string number = std::to_string(host->id);
      add({number.c_str(), host->pci_dev, host->info, host->serial_number, host->firmware_revision,
           host->protocol, std::to_string(host->port.port_id).c_str()});
      for (const hcx_port *port = host->port_list; port; port = port->next) {
        EXPECT_TRUE(!port->next || port->next->id > port->id);
        EXPECT_EQ(port->host, host);
        const std::string address = number + ":" + std::to_string(port->id);
        add({address.c_str(), std::to_string(port->port_id).c_str(), std::to_string(port->roles).c_str(),
             std::to_string(hcx::wwn_load(port->wwpn)).c_str()});
        for (const hcx_lun *lun = port->lun_list; lun; lun = lun->next) {
          EXPECT_TRUE(!lun->next || lun->next->id > lun->id);
          EXPECT_EQ(lun->port, port);
          add({address.c_str(), std::to_string(lun->id).c_str(), lun->generic_scsi_dev, lun->block_dev});
        }
      }
    }
    return lines;
  }

  struct Outcome {
    Result result = 0;
    std::string contents;
    std::vector<std::string> files;
    bool hit = false;
  };
  // One run from the same beginning, with a fault from `arm` to `disarm`; what the call took must be back.
  template <class Arm, class Disarm>
  Outcome run(const Call &call, Arm arm, Disarm disarm) {
    Outcome outcome;
    SensibleArguments arguments;
    rewind();
    {
      const Quiet quiet;
      if (call.before) call.before(arguments);
      machine_.take_used();
      const size_t kept = m.open_fds();
      arm();
      outcome.result = call.invoke(arguments);
      outcome.hit = disarm();
      used_ = machine_.take_used();
      outcome.contents = arguments.contents();
      outcome.files = files();
      EXPECT_TRUE((call.flags & calls::kLasting) != 0 || m.open_fds() == kept);
      if (call.after) call.after(arguments);
    }
    expect_nothing_held();
    return outcome;
  }
  Outcome run(const Call &call) {
    return run(
        call, [] {}, [] { return false; });
  }

  void expect_nothing_held() {
    EXPECT_EQ(m.open_fds(), 0u);
    EXPECT_EQ(m.held_locks(), 0u);
    EXPECT_EQ(m.processes().count(), 0u);
    EXPECT_EQ(pthread_mutex_trylock(&vosk_event_mutex), 0);
    pthread_mutex_unlock(&vosk_event_mutex);
    for (hcx_host *host = hcx_host_list; host; host = host->next) {
      ASSERT_EQ(pthread_rwlock_trywrlock(&host->rwlock), 0) << "host" << host->id;
      pthread_rwlock_unlock(&host->rwlock);
    }
    sigset_t signals;
    pthread_sigmask(SIG_BLOCK, nullptr, &signals);
    for (int number = 1; number < NSIG; ++number)
      EXPECT_EQ(sigismember(&signals, number), sigismember(&signals_, number)) << "signal " << number;
  }

  // What a fault leaves is what there was, or less until the next scan.
  void expect_inventory_whole(const Call &call) {
    if (inventory() == inventory_) return;
    if ((call.flags & calls::kScans) != 0) HCX_FreeDiagEnv();
    calls::number_boards();
    refresh();
    EXPECT_EQ(inventory(), inventory_);
  }

  static int failures() {
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
  }
  void sweep(const Call &call, const Mode &mode, sim::Verb verb) {
    const int before = failures();
    const Outcome good = run(call);
    const Outcome again = run(call);
    const bool steady = again.contents == good.contents && (call.flags & calls::kVaries) == 0;
    EXPECT_EQ(again.result, good.result);
    rewind();
    const std::vector<std::string> old = files();
    for (int n = 1;; n = next(n)) {
      const testing::ScopedTrace trace(__FILE__, __LINE__,
                                       std::string(call.name) + ", fault " + std::to_string(n));
      const Outcome outcome = run(
          call,
          [&] {
            if (mode.memory) {
              alloc_fault::fail_nth(n, true, mode.lasting);
            } else {
              machine_.arm({.verb = verb, .nth = n, .lasting = mode.lasting, .half = mode.half});
            }
          },
          [&] { return mode.memory ? alloc_fault::take_hit() : machine_.disarm(); });
      for (size_t i = 0; i < old.size(); ++i)
        EXPECT_TRUE(outcome.files[i] == old[i] || outcome.files[i] == good.files[i])
            << "file " << i << " is half written";
      EXPECT_TRUE(outcome.result != good.result || outcome.files == good.files) << "says it is done";
      expect_inventory_whole(call);
      const Outcome healed = run(call);
      EXPECT_EQ(healed.result, good.result);
      EXPECT_EQ(healed.files, good.files);
      EXPECT_TRUE(!steady || healed.contents == good.contents) << "answers otherwise after the fault";
      if (!outcome.hit) {
        EXPECT_EQ(outcome.result, good.result);
        return;
      }
      if (failures() != before) return;
    }
  }

  sim::Machine m;
  FaultyMachine machine_{m};
  struct Behind {
    explicit Behind(FaultyMachine &machine) { LIBHCX_private_set_machine(&machine); }
    ~Behind() { LIBHCX_private_set_machine(nullptr); }
  } behind_{machine_};
  std::map<int, std::optional<std::string>> flash_;
  std::set<std::string> inventory_;
  std::set<sim::Verb> used_;
  sigset_t signals_;
};

TEST_P(Sweep, EveryCall) {
  const char *only = getenv("HCX_SWEEP");
  for (const Call &call : all_rows()) {
    if (only && call.name != std::string_view(only)) continue;
    if (!GetParam().each_verb) {
      sweep(call, GetParam(), sim::Verb::any);
      continue;
    }
    run(call);
    const std::set<sim::Verb> used = used_;
    for (const sim::Verb verb : used) {
      SCOPED_TRACE("verb " + std::to_string(static_cast<int>(verb)));
      sweep(call, GetParam(), verb);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, Sweep, testing::ValuesIn(kModes),
                         [](const auto &instance) { return std::string(instance.param.name); });

// The version script says what is exported: a call without a row is a call that is not swept.
TEST(SweepTable, LeavesNoCallOut) {
  std::ifstream in(HCX_SOURCE_DIR "/lib/libhcx.map");
  std::string text{std::istreambuf_iterator<char>(in), {}};
  for (size_t at; (at = text.find("/*")) != std::string::npos;)
    text.erase(at, text.find("*/", at) + 2 - at);
  text.resize(text.find("local:"));
  std::set<std::string> exported, swept = kObjects;
  std::string name;
  for (const char c : text.substr(text.find("global:") + 7)) {
    if (c == ';') exported.insert(std::exchange(name, ""));
    if (isalnum(static_cast<unsigned char>(c)) || c == '_') name += c;
  }
  for (const Call &call : all_rows())
    EXPECT_TRUE(swept.insert(call.name).second) << call.name << " has two rows";
  EXPECT_GT(exported.size(), 250u);
  EXPECT_EQ(swept, exported);
}

}  // namespace
