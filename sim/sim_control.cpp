// SPDX-License-Identifier: BSD-3-Clause
// Board mode, resets and driver parameters of simulated boards: what "board_mode", "issue_reset", "issue_lip"
// and the "vosk_" parameters do when they are written. Under the machine's mutex throughout.
#include "sim_control.h"
#include "sim_areas.h"

#include <errno.h>

#include "sim_control_state.h"
#include "sim_machine.h"

namespace sim {

using nlohmann::json;

json &control_state(Host &host) {
  json &state = host.state()["control"];
  if (!state.is_object()) state = json::object();
  return state;
}

void count_up(Host &host, const char *counter) {
  json &state = control_state(host);
  state[counter] = state.value(counter, 0u) + 1;
  host.machine().touch();
}

void show_link(Host &host, bool up) {
  host.set_scsi("link_state", up ? host.spec().link_state : "Link Down");
  host.set_fc("port_state", up ? host.spec().port_state : "Linkdown");
}

void reset_link(Host &host) {
  count_up(host, "link_resets");
  if (host.spec().sli < 4) {
    control_state(host)["loopback"] = 0;
    show_link(host, true);
  }
}

void configure(Host &host, const ControlSettings &s) {
  control_state(host)["settings"] = json{{"reset_enabled", s.reset_enabled},
                                         {"fw_reset", s.fw_reset},
                                         {"coordinated_reset", s.coordinated_reset},
                                         {"selective_reset", s.selective_reset},
                                         {"mode_changes", s.mode_changes},
                                         {"dump", s.dump},
                                         {"nolip", s.nolip},
                                         {"params_writable", s.params_writable},
                                         {"loopback_plug", s.loopback_plug},
                                         {"loopback_corrupt", s.loopback_corrupt},
                                         {"bridge_answers", s.bridge_answers},
                                         {"end_loopback", s.end_loopback}};
  host.machine().touch();
}

ControlSettings control_settings(Host &host) {
  ControlSettings s;
  const json state = control_state(host);
  if (!state.contains("settings")) return s;
  const json &set = state["settings"];
  s.reset_enabled = set.value("reset_enabled", s.reset_enabled);
  s.fw_reset = set.value("fw_reset", s.fw_reset);
  s.coordinated_reset = set.value("coordinated_reset", s.coordinated_reset);
  s.selective_reset = set.value("selective_reset", s.selective_reset);
  s.mode_changes = set.value("mode_changes", s.mode_changes);
  s.dump = set.value("dump", s.dump);
  s.nolip = set.value("nolip", s.nolip);
  s.params_writable = set.value("params_writable", s.params_writable);
  s.loopback_plug = set.value("loopback_plug", s.loopback_plug);
  s.loopback_corrupt = set.value("loopback_corrupt", s.loopback_corrupt);
  s.bridge_answers = set.value("bridge_answers", s.bridge_answers);
  s.end_loopback = set.value("end_loopback", s.end_loopback);
  return s;
}

ControlRecord control_record(Host &host) {
  ControlRecord r;
  const json state = control_state(host);
  r.resets = state.value("resets", 0u);
  r.fw_resets = state.value("fw_resets", 0u);
  r.dumps = state.value("dumps", 0u);
  r.link_resets = state.value("link_resets", 0u);
  r.loopback = state.value("loopback", 0u);
  r.bridge_loopback = state.value("bridge_loopback", false);
  return r;
}

namespace {

// A driver takes a word with or without the newline that a shell adds.
std::string word_of(const std::string &text) {
  return !text.empty() && text.back() == '\n' ? text.substr(0, text.size() - 1) : text;
}

void set_mode(Host &host, const std::string &mode) {
  control_state(host)["loopback"] = 0;
  host.set_scsi("board_mode", mode);
  show_link(host, mode == "online");
}

int store_board_mode(Host &host, const std::string &text) {
  const ControlSettings settings = control_settings(host);
  const std::string word = word_of(text);
  if (word == "fw_reset") {
    if (!settings.reset_enabled) return -EACCES;
    if (!settings.fw_reset || host.spec().sli < 4) return -EPERM;
    count_up(host, "fw_resets");
    count_up(host, "resets");
    set_mode(host, "online");
    return 0;
  }
  if (!settings.mode_changes) return -EINVAL;
  if (word == "dump") {
    if (!settings.dump) return -EBUSY;
    // The firmware writes its dump and starts again.
    count_up(host, "dumps");
    set_mode(host, "online");
    return 0;
  }
  if (word != "online" && word != "offline" && word != "warm" && word != "error") return -EINVAL;
  set_mode(host, word);
  return 0;
}

int store_issue_reset(Host &host, const std::string &text) {
  const ControlSettings settings = control_settings(host);
  const std::string word = word_of(text);
  if (!settings.reset_enabled) return -EACCES;
  if (word == "selective") {
    if (!settings.selective_reset) return -EIO;
  } else if (word != "coordinated" || !settings.coordinated_reset) {
    return -EINVAL;
  }
  count_up(host, "resets");
  set_mode(host, "online");
  return 0;
}

// Parameters whose change resets the link, unless "nolip " stands in front.
bool is_link_parameter(const std::string &name) {
  return name == "vosk_topology" || name == "vosk_link_speed";
}

// Puts the board's refusals and the link reset around what the driver does with a parameter anyway.
void wrap_parameter(Host &host, const std::string &name) {
  const std::shared_ptr<Node> node = host.machine().vfs().find(host.scsi_dir() + name);
  if (!node || !node->handlers || !node->handlers->store) return;
  const bool link = is_link_parameter(name);
  node->handlers->store = [&host, link, driver = node->handlers->store](const std::string &text) {
    const ControlSettings settings = control_settings(host);
    if (!settings.params_writable) return -EIO;
    const bool nolip = text.starts_with("nolip ");
    if (nolip && (!link || !settings.nolip)) return -EINVAL;
    const int result = driver(text);
    if (result == 0 && link && !nolip) reset_link(host);
    return result;
  };
}

void hook_host(Host &host) {
  if (host.spec().foreign || host.parent()) return;
  Vfs &vfs = host.machine().vfs();
  const std::string dir = host.scsi_dir();
  if (vfs.exists(dir + "board_mode"))
    vfs.on_write(dir + "board_mode",
                 [&host](const std::string &text) { return store_board_mode(host, text); });
  if (vfs.exists(dir + "issue_reset"))
    vfs.on_write(dir + "issue_reset",
                 [&host](const std::string &text) { return store_issue_reset(host, text); });
  const std::string lip = host.fc_dir() + "issue_lip";
  if (vfs.exists(lip))
    vfs.on_write(lip, [&host](const std::string &text) {
      if (word_of(text).empty()) return -EINVAL;
      reset_link(host);
      return 0;
    });
  for (const std::string &name : vfs.names(dir))
    if (name.starts_with("vosk_")) wrap_parameter(host, name);
}

}  // namespace

void install_board_control(Machine &machine) {
  machine.on_host(hook_host);
}

}  // namespace sim
