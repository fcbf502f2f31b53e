// SPDX-License-Identifier: BSD-3-Clause
// The examples of all commands, by noun in the order of the help text. All of them run one after another on the
// default simulated machine, as the manual page of their noun shows.
#include "examples.h"

namespace hcxadm {
namespace {

constexpr Example table[] = {
    {"list", "hcxadm list", "All boards"},
    {"list", "hcxadm -o json list | head -8", "The same for a program"},
    {"show", "hcxadm show host11", "One board, by its kernel host"},
    {"show", "hcxadm show 10:00:00:90:fa:94:2b:02 | grep FIRMWARE",
     "One attribute of the board with this WWPN"},
    {"port list", "hcxadm port list 1", "What board 1 sees"},
    {"port list", "hcxadm port list --down", "Which ports are down on either side, and since when"},
    {"lun list", "hcxadm lun list 1", "The LUNs behind board 1"},
    {"lun list", "hcxadm lun list 1 --target 50:06:01:60:3e:a0:20:01", "Those of one target"},
    {"map", "hcxadm map 1", "The LUNs of board 1, through which ports, and who they say they are"},
    {"stats", "hcxadm stats 0", "What board 0 has counted"},
    {"stats", "hcxadm stats 0 --watch 1 --count 2", "Growth per second, twice"},
    {"stats", "hcxadm stats --moved 10", "Which counters move in the next ten seconds"},
    {"top", "hcxadm top", "Watch all boards until q is typed"},
    {"top", "hcxadm top --once --interval 1", "One frame of it, with the rates of a second"},
    {"link show", "hcxadm link show", "The links of all boards"},
    {"link persist show", "hcxadm link persist show", "Which links stay down after a reset"},
    {"link persist on", "hcxadm --dry-run link persist on 0", "What holding a link down would change"},
    {"link persist on", "hcxadm --yes link persist on 0", "Hold it down"},
    {"link persist off", "hcxadm --yes link persist off 0", "And let it come up again"},
    {"latency measure", "hcxadm latency measure 0 --seconds 2", "How long I/Os of board 0 take just now"},
    {"latency set", "hcxadm --yes latency set power2 0 1", "Buckets up to 1, 2, 4, ... milliseconds"},
    {"latency start", "hcxadm latency start 0", "Begin to collect on board 0"},
    {"latency show", "hcxadm latency show 0", "The histograms of its targets"},
    {"latency reset", "hcxadm latency reset 0", "Count from zero"},
    {"latency stop", "hcxadm latency stop 0", "End it"},
    {"latency destroy", "hcxadm --yes latency destroy", "Remove the buckets of all boards"},
    {"scsi inquiry", "hcxadm scsi inquiry 0 50:06:01:60:3e:a0:10:01 0", "What a LUN is"},
    {"scsi inquiry", "hcxadm scsi inquiry 0 50:06:01:60:3e:a0:10:01 0 --page 83", "Its identities"},
    {"scsi capacity", "hcxadm scsi capacity 0 50:06:01:60:3e:a0:10:01 3", "Its size"},
    {"scsi luns", "hcxadm scsi luns 0 50:06:01:60:3e:a0:10:01", "The LUNs of a target, as it reports them"},
    {"scsi read", "hcxadm scsi read 0 50:06:01:60:3e:a0:10:01 0 --block 8 --blocks 2 --file saved",
     "Two blocks into a file"},
    {"scsi write", "hcxadm --yes scsi write 0 50:06:01:60:3e:a0:10:01 0 --block 8 --file saved", "And back"},
    {"scsi cdb", "hcxadm scsi cdb 0 50:06:01:60:3e:a0:10:01 0 00 00 00 00 00 00",
     "Any command, here TEST UNIT READY"},
    {"metrics", "hcxadm metrics | grep -A 3 'TYPE hcx_fibrechannel_tx_frames'", "One metric"},
    {"param list", "hcxadm param list 0 | head -5", "The first parameters of board 0"},
    {"param get", "hcxadm param get 0 nodev-tmo", "One parameter"},
    {"param set", "hcxadm --yes param set 0 nodev-tmo 60", "Change it"},
    {"loopback run", "hcxadm --yes loopback run 2 --count 3 --pattern a55a", "Three tests inside the port"},
    {"loopback end", "hcxadm --yes loopback end 2", "Take a port out of loopback"},
    {"reg read", "hcxadm reg read 2 0 --count 2", "The first two control registers of board 2"},
    {"reg write", "hcxadm --dry-run reg write 2 8 1", "What a write would do"},
    {"pci read", "hcxadm pci read 0 --count 16", "The first 16 bytes of board 0"},
    {"reset", "hcxadm --dry-run reset 0 --kind firmware", "What would be done"},
    {"reset", "hcxadm --yes reset 0", "A selective reset; returns when the board is on-line again"},
    {"mode", "hcxadm mode", "The modes of all boards"},
    {"mode", "hcxadm --yes mode 1 offline", "Take one off-line"},
    {"mode", "hcxadm --yes mode 1 online", "And back"},
    {"region show", "hcxadm region show 3", "The records of region 23"},
    {"region dump", "hcxadm region dump 3 --length 32", "Its first bytes"},
    {"region dump", "hcxadm region dump 3 --out region23", "All of it into a file"},
    {"region write", "hcxadm --dry-run region write 0 --in region23",
     "What writing it to another board would change"},
    {"fcf list", "hcxadm fcf list 3", "The forwarders that board 3 knows"},
    {"fcf connect set", "hcxadm --yes fcf connect set 3 fabric=10:00:00:0d:ec:af:ba:d0,vlan=1002",
     "Use this fabric only"},
    {"fcf connect get", "hcxadm fcf connect get 3", "What may be used"},
    {"fcf connect set", "hcxadm --yes fcf connect set 3 --none", "Any may be used"},
    {"fip get", "hcxadm fip get 3", "FC-MAP and VLAN of board 3"},
    {"fip set", "hcxadm --yes fip set 3 --vlan 7", "Another VLAN; the FC-MAP stays"},
    {"qos set", "hcxadm --yes qos set 0 target=50:06:01:60:3e:a0:10:01,first=0,last=7,priority=3 priority=1",
     "Eight LUNs before all others"},
    {"qos list", "hcxadm qos list 0", "The rules as the adapter applies them"},
    {"qos enable", "hcxadm --yes qos enable 0", "Switch priorities on"},
    {"qos disable", "hcxadm --yes qos disable 0", "And off"},
    {"qos speed", "hcxadm qos speed", "Speeds of logical links"},
    {"mbox", "hcxadm mbox 0 read-rev", "Revisions of the adapter"},
    {"mbox", "hcxadm --dry-run mbox 0 restart", "What may change the adapter is asked about, or only shown"},
    {"ct", "hcxadm ct 0 01000000fc020000 0171000000000000 00000008",
     "Ask the name server for the ports of FC-4 type 8"},
    {"els", "hcxadm els 0 0x010300 10000000 68656c6c6f", "Echo through the port at an FC address"},
    {"rnid", "hcxadm rnid 0 50:06:01:60:3e:a0:10:01", "Of a remote port"},
    {"rnid", "hcxadm rnid 0", "Of the board"},
    {"event follow", "hcxadm event follow --kind link,rscn --count 2",
     "What changed: the next two link events and RSCNs"},
    {"event history", "hcxadm event history 0 --wait 1", "What the ring of board 0 takes within a second"},
    {"vport ready", "hcxadm vport ready 0", "Whether board 0 is ready for one more"},
    {"vport create", "hcxadm --yes vport create 0 --name db2", "Create one"},
    {"vport list", "hcxadm vport list", "All of them"},
    {"vport show", "hcxadm vport show 0 20:01:00:90:fa:94:2b:02", "One of them"},
    {"vport delete", "hcxadm --yes vport delete 0 10:00:01:90:fa:94:2b:02", "Delete one"},
    {"auth set", "echo | hcxadm --yes auth set 0 fabric --bidirectional yes --password-fd 0",
     "Authenticate with the fabric, and the fabric with us"},
    {"auth list", "hcxadm auth list 0", "What is configured"},
    {"auth show", "hcxadm auth show 0 fabric", "One configuration"},
    {"auth password",
     "printf '\\n%s\\n' twelve.chars | hcxadm --yes auth password 0 fabric local --password-fd 0",
     "A first local password, from a program"},
    {"auth start", "hcxadm --yes auth start 0 fabric", "Authenticate now"},
    {"auth status", "hcxadm auth status 0", "How it went"},
    {"auth delete", "echo twelve.chars | hcxadm --yes auth delete 0 fabric --password-fd 0",
     "Delete the configuration"},
    {"caps", "hcxadm caps | head -5", "What the running driver offers"},
    {"caps", "hcxadm caps --off", "What it does not"},
    {"log set", "hcxadm log set error trace", "Log errors and calls, in all processes"},
    {"log show", "hcxadm log show | head -5", "What is logged"},
    {"log off", "hcxadm log off", "Log nothing"},
    {"version", "hcxadm version --driver", "All versions"},
};

// Whether `command` is `path` or a verb of it.
bool belongs(const std::string &command, const std::string &path) {
  return command == path || command.starts_with(path + " ");
}

void add_below(CLI::App &app, const std::string &path, const std::string &closing) {
  std::string text;
  for (const Example &example : table)
    if (belongs(example.command, path))
      text.append("  # ").append(example.what).append("\n  ").append(example.line).append("\n");
  if (!text.empty()) app.footer("\nExamples:\n" + text + closing);
  for (CLI::App *sub : app.get_subcommands([](const CLI::App *) { return true; }))
    add_below(*sub, path + (path.empty() ? "" : " ") + sub->get_name(), closing);
}

}  // namespace

std::span<const Example> examples() {
  return table;
}

void add_examples(CLI::App &root, const std::string &closing) {
  for (CLI::App *noun : root.get_subcommands([](const CLI::App *) { return true; }))
    add_below(*noun, noun->get_name(), closing);
}

}  // namespace hcxadm
