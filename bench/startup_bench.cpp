// SPDX-License-Identifier: BSD-3-Clause
// Start-up and rescan, per LUN, on trees of 256 to 16,384 LUNs; beside them tools that list LUNs from the same tree,
// each in a process of its own. The floor of all is one reading of the tree.
#include <sched.h>
#include <sys/mount.h>

#include <sstream>

#include "bench.h"
#include "hcxadm.h"

namespace {

using bench::Tree;

// lsscsi takes the tree by an option. systool knows /sys only, so that it gets the tree there, in mounts of its own.
bool mount_as_sys(const Tree &tree) {
  return unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount((tree.root + "/sys").c_str(), "/sys", nullptr, MS_BIND, nullptr) == 0;
}

double timed_command(const std::vector<const char *> &words, const Tree *mounted = nullptr) {
  return bench::timed_child([&] {
    if (mounted && !mount_as_sys(*mounted)) return 126;
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    std::vector<char *> args;
    for (const char *word : words)
      args.push_back(const_cast<char *>(word));
    args.push_back(nullptr);
    execvp(args[0], args.data());
    return 127;
  });
}

double timed_hcxadm(const std::string &noun) {
  return bench::timed_child([&] {
    std::istringstream in;
    std::ostringstream out;
    return hcxadm::run({noun, "--output", "json"}, in, out, out);
  });
}

void measure(const Tree &tree, int rounds) {
  const std::string size = ", " + std::to_string(tree.luns) + " LUNs";
  const bench::FloorScan all(tree, 0, Tree::hosts), one(tree, 1, 1);
  const auto floor_all = [&] { return bench::timed([&] { all.run(); }); };
  const auto floor_one = [&] { return bench::timed([&] { one.run(); }); };

  bench::Machine machine(tree.root);
  { const bench::Started once(machine); }
  machine.calls = 0;
  std::vector<hcx_brdinfo> boards(Tree::hosts);
  HCX_InitDiagEnv(boards.data(), Tree::hosts);
  const double calls = static_cast<double>(machine.calls) / tree.luns;
  HCX_FreeDiagEnv();
  bench::row(
      "start-up" + size, rounds, tree.luns, calls,
      [&] {
        const double took = bench::timed([&] { HCX_InitDiagEnv(boards.data(), Tree::hosts); });
        HCX_FreeDiagEnv();
        return took;
      },
      floor_all);
  {
    const bench::Started library(machine);
    RefreshInformation(1);
    const double rescan_calls = static_cast<double>(machine.calls) / static_cast<double>(one.luns());
    bench::row(
        "rescan of a board" + size, rounds, static_cast<double>(one.luns()), rescan_calls,
        [] { return bench::timed([] { RefreshInformation(1); }); }, floor_one);
  }
  bench::row(
      "hcxadm lun" + size, rounds, tree.luns, 0, [] { return timed_hcxadm("lun"); }, floor_all);
  bench::row(
      "hcxadm map" + size, rounds, tree.luns, 0, [] { return timed_hcxadm("map"); },
      [&] {
        return bench::timed([&] {
          all.run();
          for (int i = 0; i < tree.luns; ++i)
            bench::floor_inquiry(tree.root + "/dev/sg");
        });
      });
  const std::string sys = tree.root + "/sys";
  bench::row(
      "lsscsi -t -g" + size, rounds, tree.luns, 0,
      [&] {
        return timed_command({"lsscsi", "-y", sys.c_str(), "-t", "-g"});
      },
      floor_all);
  bench::row(
      "systool -c scsi_device" + size, rounds, tree.luns, 0,
      [&] {
        return timed_command({"systool", "-c", "scsi_device"}, &tree);
      },
      floor_all);
}

}  // namespace

int main(int argc, char **argv) {
  const bench::Options options(argc, argv);
  for (const int luns : {256, 1024, 4096, 16384})
    measure(Tree(luns), options.rounds(9));
  return 0;
}
