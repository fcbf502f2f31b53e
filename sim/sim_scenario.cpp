// SPDX-License-Identifier: BSD-3-Clause
// The reader of scenario files. A key that is not known, or a value of the wrong kind, is an error with its place in
// the document: a misspelt fault would otherwise be a test that tests nothing.
#include "sim_scenario.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>

#include "sim_control.h"
#include "sim_machine.h"
#include "sim_mbox.h"

namespace sim {

using nlohmann::json;

namespace {
constexpr struct {
  const char *name;
  int value;
} kErrors[] = {
    {"EPERM", EPERM},   {"ENOENT", ENOENT},       {"EINTR", EINTR},         {"EIO", EIO},
    {"ENXIO", ENXIO},   {"EAGAIN", EAGAIN},       {"ENOMEM", ENOMEM},       {"EACCES", EACCES},
    {"EBUSY", EBUSY},   {"ENODEV", ENODEV},       {"EINVAL", EINVAL},       {"EMFILE", EMFILE},
    {"ENOTTY", ENOTTY}, {"ENOSPC", ENOSPC},       {"EROFS", EROFS},         {"ERANGE", ERANGE},
    {"ENOSYS", ENOSYS}, {"EOVERFLOW", EOVERFLOW}, {"ETIMEDOUT", ETIMEDOUT},
};

constexpr struct {
  const char *name;
  Verb value;
} kVerbs[] = {
    {"any", Verb::any},
    {"open", Verb::open},
    {"close", Verb::close},
    {"read", Verb::read},
    {"write", Verb::write},
    {"seek", Verb::seek},
    {"lock", Verb::lock},
    {"stat", Verb::stat},
    {"fstat", Verb::fstat},
    {"truncate", Verb::truncate},
    {"list", Verb::list},
    {"read_link", Verb::read_link},
    {"unlink", Verb::unlink},
    {"ioctl", Verb::ioctl},
    {"netlink_connect", Verb::netlink_connect},
    {"netlink_receive", Verb::netlink_receive},
    {"spawn", Verb::spawn},
    {"signal", Verb::signal},
    {"wait_child", Verb::wait_child},
};

constexpr uint64_t kMostLuns = 65536;

[[noreturn]] void wrong(const std::string &where, const std::string &what) {
  throw std::runtime_error((where.empty() ? "scenario" : where) + ": " + what);
}

uint64_t number(const json &value, const std::string &where, bool is_wwn) {
  if (value.is_number_integer() && (value.is_number_unsigned() || value.get<int64_t>() >= 0)) {
    return value.get<uint64_t>();
  }
  if (!value.is_string()) wrong(where, "expected a number from 0 up, or one in text as \"0x10\"");
  std::string text = value.get<std::string>();
  const bool colons = text.find(':') != std::string::npos;
  if (is_wwn && colons) {
    std::erase(text, ':');
    text.insert(0, "0x");
  }
  try {
    size_t used = 0;
    const uint64_t parsed = std::stoull(text, &used, 0);
    if (used == text.size() && text.front() != '-') return parsed;
  } catch (const std::logic_error &) {
    // reported below
  }
  wrong(where, "\"" + value.get<std::string>() + "\" is not a number");
}

// One object of the document; every key must be asked for.
class Reader {
 public:
  Reader(const json &object, std::string where) : object_(object), where_(std::move(where)) {
    if (!object_.is_object()) wrong(where_, "expected an object");
  }
  void done() const {
    for (const auto &[key, value] : object_.items()) {
      if (!asked_.contains(key)) wrong(at(key), "there is no such key");
    }
  }
  [[nodiscard]] std::string at(const std::string &key) const {
    return where_.empty() ? key : where_ + "." + key;
  }
  const json *find(const char *key) {
    asked_.insert(key);
    const auto found = object_.find(key);
    return found == object_.end() ? nullptr : &*found;
  }
  template <typename T>
  void integer(const char *key, T &value, bool is_wwn = false) {
    const json *found = find(key);
    if (found == nullptr) return;
    const uint64_t parsed = number(*found, at(key), is_wwn);
    if (parsed > static_cast<uint64_t>(std::numeric_limits<T>::max()))
      wrong(at(key), "the number is too large");
    value = static_cast<T>(parsed);
  }
  void wwn(const char *key, uint64_t &value) { integer(key, value, true); }
  void text(const char *key, std::string &value) {
    if (const json *found = find(key)) {
      if (!found->is_string()) wrong(at(key), "expected a text");
      value = found->get<std::string>();
    }
  }
  void flag(const char *key, bool &value) {
    if (const json *found = find(key)) {
      if (!found->is_boolean()) wrong(at(key), "expected true or false");
      value = found->get<bool>();
    }
  }
  template <typename Each>
  void array(const char *key, Each each) {
    const json *found = find(key);
    if (found == nullptr) return;
    if (!found->is_array()) wrong(at(key), "expected an array");
    for (size_t i = 0; i < found->size(); i++)
      each((*found)[i], at(key) + "[" + std::to_string(i) + "]");
  }

 private:
  const json &object_;
  std::string where_;
  std::set<std::string> asked_;
};

void load_lun(Rport &rport, const json &object, const std::string &where) {
  Reader in(object, where);
  LunSpec spec;
  std::string kind = "disk";
  in.integer("lun", spec.lun);
  in.text("kind", kind);
  if (kind == "tape") {
    spec.kind = LunKind::tape;
  } else if (kind == "changer") {
    spec.kind = LunKind::changer;
    spec.bound = false;
  } else if (kind != "disk") {
    wrong(in.at("kind"), "expected \"disk\", \"tape\" or \"changer\"");
  }
  in.integer("blocks", spec.blocks);
  in.text("vendor", spec.vendor);
  in.text("model", spec.model);
  in.text("revision", spec.revision);
  in.text("serial", spec.serial);
  in.wwn("wwn", spec.wwn);
  in.flag("generic", spec.generic);
  in.flag("bound", spec.bound);
  in.done();
  if (rport.lun(spec.lun) != nullptr) wrong(where, "LUN " + std::to_string(spec.lun) + " is there already");
  rport.add_lun(spec);
}

void load_rport(Host &host, const json &object, const std::string &where) {
  Reader in(object, where);
  RportSpec spec;
  in.wwn("wwpn", spec.wwpn);
  in.wwn("wwnn", spec.wwnn);
  in.integer("port_id", spec.port_id);
  in.text("roles", spec.roles);
  in.integer("target_id", spec.target_id);
  in.text("state", spec.state);
  in.integer("number", spec.number);
  if (host.rport(spec.number) != nullptr) wrong(in.at("number"), "this number is taken");
  Rport &rport = host.add_rport(spec);
  const json *luns = in.find("luns");
  if (luns != nullptr && !rport.is_target()) wrong(in.at("luns"), "a port that is no FCP target has no LUNs");
  if (luns != nullptr && luns->is_number_integer()) {
    for (uint64_t i = 0; i < luns->get<uint64_t>(); i++)
      rport.add_lun({.lun = i});
  } else {
    in.array("luns", [&](const json &lun, const std::string &at) { load_lun(rport, lun, at); });
  }
  in.done();
}

void load_attributes(Machine &machine, Reader &in, const char *key, const std::string &dir) {
  const json *found = in.find(key);
  if (found == nullptr) return;
  if (!found->is_object()) wrong(in.at(key), "expected an object of attribute names");
  for (const auto &[name, value] : found->items()) {
    if (value.is_null()) {
      machine.vfs().remove(dir + name);
    } else if (value.is_string()) {
      // A text may lack its newline only on purpose: "\u0000" is never part of one.
      machine.vfs().put_text(dir + name, value.get<std::string>() + "\n");
    } else {
      wrong(in.at(key) + "." + name, "expected a text, or null for an attribute that is not there");
    }
  }
}

void load_vport(Host &host, const json &object, const std::string &where) {
  Reader in(object, where);
  VportSpec spec;
  in.wwn("wwpn", spec.wwpn);
  in.wwn("wwnn", spec.wwnn);
  in.text("name", spec.name);
  in.integer("port_id", spec.port_id);
  in.integer("host_number", spec.host_number);
  in.flag("static", spec.configured);
  in.done();
  host.add_vport(spec);
}

void load_control(Host &host, const json &object, const std::string &where) {
  Reader in(object, where);
  ControlSettings settings = control_settings(host);
  in.flag("reset_enabled", settings.reset_enabled);
  in.flag("fw_reset", settings.fw_reset);
  in.flag("coordinated_reset", settings.coordinated_reset);
  in.flag("selective_reset", settings.selective_reset);
  in.flag("mode_changes", settings.mode_changes);
  in.flag("dump", settings.dump);
  in.flag("nolip", settings.nolip);
  in.flag("params_writable", settings.params_writable);
  in.flag("loopback_plug", settings.loopback_plug);
  in.integer("loopback_corrupt", settings.loopback_corrupt);
  in.flag("bridge_answers", settings.bridge_answers);
  in.flag("end_loopback", settings.end_loopback);
  in.done();
  configure(host, settings);
}

Forwarder load_forwarder(const json &object, const std::string &where) {
  Reader in(object, where);
  Forwarder forwarder;
  in.wwn("fabric", forwarder.fabric);
  in.wwn("switch", forwarder.switch_name);
  in.wwn("mac", forwarder.mac);
  in.integer("fc_map", forwarder.fc_map);
  in.integer("keep_alive", forwarder.keep_alive);
  in.integer("priority", forwarder.priority);
  if (in.find("vlans") != nullptr) forwarder.vlans.clear();
  in.array("vlans", [&](const json &vlan, const std::string &at) {
    const uint64_t id = number(vlan, at, false);
    if (id > 4095) wrong(at, "VLANs are 0 to 4095");
    forwarder.vlans.push_back(static_cast<uint16_t>(id));
  });
  in.flag("available", forwarder.available);
  in.flag("valid", forwarder.valid);
  in.done();
  return forwarder;
}

void load_host(Machine &machine, const json &object, const std::string &where) {
  Reader in(object, where);
  HostSpec spec;
  bool fabric_ports = true;
  in.integer("number", spec.number);
  in.integer("sli", spec.sli);
  in.integer("if_type", spec.if_type);
  in.text("protocol", spec.protocol);
  in.wwn("wwpn", spec.wwpn);
  in.wwn("wwnn", spec.wwnn);
  in.wwn("fabric", spec.fabric);
  in.integer("port_id", spec.port_id);
  in.text("pci", spec.pci);
  in.integer("pci_vendor", spec.pci_vendor);
  in.integer("pci_device", spec.pci_device);
  in.integer("irq", spec.irq);
  in.text("info", spec.info);
  in.text("model", spec.model);
  in.text("description", spec.description);
  in.text("serial", spec.serial);
  in.text("hardware", spec.hardware);
  in.text("firmware", spec.firmware);
  in.text("option_rom", spec.option_rom);
  in.text("driver", spec.driver);
  in.integer("program_type", spec.program_type);
  in.integer("port_number", spec.port_number);
  in.integer("unique_id", spec.unique_id);
  in.text("port_type", spec.port_type);
  in.text("port_state", spec.port_state);
  in.text("link_state", spec.link_state);
  in.text("speed", spec.speed);
  in.text("supported_speeds", spec.supported_speeds);
  in.text("npiv", spec.npiv);
  in.integer("max_vports", spec.max_vports);
  in.integer("vport_delay", spec.vport_delay);
  in.flag("temp_sensor", spec.temp_sensor);
  in.flag("auth", spec.auth);
  in.flag("slimem", spec.slimem);
  in.flag("foreign", spec.foreign);
  in.flag("fabric_ports", fabric_ports);
  in.text("region23", spec.region23);
  if (!is_factory_region(spec.region23)) wrong(in.at("region23"), "neither a known state nor bytes");
  if (in.find("forwarders") != nullptr) spec.forwarders.emplace();
  in.array("forwarders", [&](const json &forwarder, const std::string &at) {
    spec.forwarders->push_back(load_forwarder(forwarder, at));
  });
  if (spec.number >= 0 && machine.host(spec.number) != nullptr)
    wrong(in.at("number"), "this number is taken");
  if (spec.protocol != "fc" && spec.protocol != "fcoe")
    wrong(in.at("protocol"), "expected \"fc\" or \"fcoe\"");
  Host &host = machine.add_host(spec);
  if (!spec.foreign && fabric_ports) host.add_fabric_ports();
  in.array("rports", [&](const json &rport, const std::string &at) { load_rport(host, rport, at); });
  in.array("vports", [&](const json &vport, const std::string &at) { load_vport(host, vport, at); });
  load_attributes(machine, in, "scsi_host", host.scsi_dir());
  load_attributes(machine, in, "fc_host", host.fc_dir());
  if (const json *control = in.find("control")) load_control(host, *control, in.at("control"));
  in.done();
}

void load_fault(Machine &machine, const json &object, const std::string &where) {
  Reader in(object, where);
  Fault fault;
  std::string verb = "any", error;
  in.text("verb", verb);
  in.text("path", fault.path);
  in.integer("nth", fault.nth);
  in.flag("persistent", fault.persistent);
  in.text("error", error);
  if (in.find("short") != nullptr) {
    size_t count = 0;
    in.integer("short", count);
    fault.short_count = count;
  }
  in.done();
  const auto *found =
      std::find_if(std::begin(kVerbs), std::end(kVerbs), [&](auto &v) { return verb == v.name; });
  if (found == std::end(kVerbs)) wrong(in.at("verb"), "\"" + verb + "\" is no call of the machine");
  fault.verb = found->value;
  if (!error.empty()) {
    const auto *named =
        std::find_if(std::begin(kErrors), std::end(kErrors), [&](auto &e) { return error == e.name; });
    if (named == std::end(kErrors)) wrong(in.at("error"), "\"" + error + "\" is no error name");
    fault.error = named->value;
  }
  if (fault.nth < 1) wrong(in.at("nth"), "calls are counted from 1");
  machine.fail(fault);
}

void load_scale(Machine &machine, const json &object, const std::string &where) {
  Reader in(object, where);
  int hosts = 1, targets = 0, luns = 0;
  in.integer("hosts", hosts);
  in.integer("targets", targets);
  in.integer("luns", luns);
  in.done();
  if (hosts > 1024 || targets > 4096 || luns > static_cast<int>(kMostLuns)) {
    wrong(where, "at most 1024 hosts, 4096 targets a host and 65536 LUNs a target");
  }
  scaled_san(machine, hosts, targets, luns);
}
}  // namespace

void load_scenario(Machine &machine, const json &scenario) {
  Reader in(scenario, "");
  int generation = 2;
  std::string version, comment;
  bool standard = false;
  in.text("comment", comment);
  in.integer("generation", generation);
  bool vport_class = true;
  in.flag("fc_vports", vport_class);
  if (generation > 2) wrong("generation", "expected 0, 1 or 2");
  machine.generation(generation);
  machine.vport_class(vport_class);
  in.text("driver_version", version);
  if (!version.empty()) {
    unsigned major = 0, minor = 0;
    if (std::sscanf(version.c_str(), "%u.%u", &major, &minor) != 2)
      wrong("driver_version", "expected \"2.0\"");
    machine.driver_version(major, minor);
  }
  in.flag("superuser", machine.superuser);
  in.flag("default_san", standard);
  if (standard) default_san(machine);
  if (const json *scale = in.find("scale")) load_scale(machine, *scale, "scale");
  in.array("hosts", [&](const json &host, const std::string &at) { load_host(machine, host, at); });
  in.array("faults", [&](const json &fault, const std::string &at) { load_fault(machine, fault, at); });
  in.done();
}

void open_folder(Machine &machine, const std::string &folder) {
  const std::string file = folder + "/scenario.json";
  std::ifstream stream(file);
  if (!stream) throw std::runtime_error("cannot read " + file);
  json scenario;
  try {
    scenario = json::parse(stream);
  } catch (const json::parse_error &error) {
    throw std::runtime_error(file + ": " + error.what());
  }
  load_scenario(machine, scenario);
  machine.clock = 0;
  machine.use_state(folder);
}

}  // namespace sim
