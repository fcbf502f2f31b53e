// SPDX-License-Identifier: BSD-3-Clause
// "metrics": counters and states as OpenMetrics text, for a collector. What the adapter or the kernel does not tell is
// left out. Names mean what they mean in node_fibrechannel_*; the prefix is our own.
#include <algorithm>
#include <map>

#include "nouns.h"
#include "statistics.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.metrics", 1, 0};
constexpr char prefix[] = "hcx_fibrechannel_";

using Labels = std::vector<std::pair<std::string, std::string>>;

struct Point {
  Labels labels;
  uint64_t value;
};

// A family of samples, in the order in which OpenMetrics wants them: together.
struct Metric {
  std::string name;  // without prefix and suffix
  const char *type;
  std::string help;
  std::vector<Point> points;
};

std::string escaped(const std::string &text) {
  std::string out;
  for (char c : text) {
    if (c == '\\' || c == '"') out += '\\';
    if (c == '\n')
      out += "\\n";
    else
      out += c;
  }
  return out;
}

const char *suffix(const Metric &metric) {
  if (std::string_view(metric.type) == "counter") return "_total";
  return std::string_view(metric.type) == "info" ? "_info" : "";
}

std::string digits_only(const uint8_t wwn[8]) {
  std::string text = wwn_text(wwn);
  std::erase(text, ':');
  return text;
}

void add_text(Labels &labels, const char *key, const Text &text) {
  if (text) labels.emplace_back(key, *text);
}

// What a collector has so far, with the families in the order of the table below.
class Metrics {
 public:
  Metrics() {
    add({"", "info", "Adapter port", {}}, info);
    add({"online", "gauge", "1 when the adapter port is on-line", {}}, online);
    add({"port_state", "stateset", "State of the adapter port", {}}, port_state);
    add({"speed_bits_per_second", "gauge", "Speed of the link", {}}, speed);
    add({"remote_ports", "gauge", "Remote ports in sight", {}}, remote_ports);
    add({"luns", "gauge", "LUNs behind the adapter port", {}}, luns);
    for (const Counter &counter : counters)
      list_.push_back({counter.metric, "counter", counter.help, {}});
    first_counter_ = list_.size() - counter_count;
    add({"remote_port", "info", "Remote port", {}}, remote_info);
    add({"remote_port_online", "gauge", "1 when the remote port is on-line", {}}, remote_online);
    add({"remote_port_role", "stateset", "Roles of the remote port", {}}, remote_role);
    add({"remote_port_luns", "gauge", "LUNs behind the remote port", {}}, remote_luns);
  }
  void put(size_t metric, Labels labels, uint64_t value) {
    list_[metric].points.push_back({std::move(labels), value});
  }
  void put_counter(size_t counter, Labels labels, uint64_t value) {
    put(first_counter_ + counter, std::move(labels), value);
  }
  const std::vector<Metric> &list() const { return list_; }

  size_t info = 0, online = 0, port_state = 0, speed = 0, remote_ports = 0, luns = 0;
  size_t remote_info = 0, remote_online = 0, remote_role = 0, remote_luns = 0;

 private:
  void add(Metric metric, size_t &index) {
    index = list_.size();
    list_.push_back(std::move(metric));
  }
  std::vector<Metric> list_;
  size_t first_counter_ = 0;
};

constexpr const char *port_states[] = {"Online",      "Offline",     "Blocked", "Bypassed",
                                       "Diagnostics", "Linkdown",    "Error",   "Loopback",
                                       "Deleted",     "Not Present", "Unknown"};

// Exactly one state is 1: a word that we do not know counts as Unknown.
void put_state(Metrics &metrics, const Labels &board, const std::string &state) {
  const auto known = std::find(std::begin(port_states), std::end(port_states), state);
  const std::string now = known == std::end(port_states) ? "Unknown" : state;
  for (const char *name : port_states) {
    Labels labels = board;
    labels.emplace_back(std::string(prefix) + "port_state", name);
    metrics.put(metrics.port_state, std::move(labels), now == name);
  }
}

void put_board(Metrics &metrics, const Board &board, const Labels &labels) {
  Labels info = labels;
  const std::string fc = board.fc_host_dir(), scsi = board.scsi_host_dir();
  info.emplace_back("port_name", digits_only(board.wwpn.wwn));
  info.emplace_back("node_name", digits_only(board.wwnn.wwn));
  for (const char *file : {"port_id", "port_type", "fabric_name", "symbolic_name", "supported_classes",
                           "speed", "supported_speeds"}) {
    Text text = attribute(fc, file);
    if (text && text->starts_with("0x")) text->erase(0, 2);
    add_text(info, file, text);
  }
  add_text(info, "model", attribute(scsi, "modelname"));
  add_text(info, "firmware", board.firmware);
  add_text(info, "driver", board.driver);
  add_text(info, "protocol", board.protocol);
  metrics.put(metrics.info, std::move(info), 1);
  if (const Text state = attribute(fc, "port_state")) {
    metrics.put(metrics.online, labels, *state == "Online");
    put_state(metrics, labels, *state);
  }
  if (const Text speed = attribute(fc, "speed"); speed && speed->find("Gbit") != std::string::npos)
    if (const std::optional<uint64_t> gbit = parse_number(speed->substr(0, speed->find(' '))))
      metrics.put(metrics.speed, labels, *gbit * 1000000000);
  metrics.put(metrics.remote_ports, labels, board.ports);
  metrics.put(metrics.luns, labels, board.luns);
}

constexpr struct {
  int bit;
  const char *name;
} roles[] = {{FC_RPORT_ROLE_FCP_TARGET, "FCP Target"},
             {FC_RPORT_ROLE_FCP_INITIATOR, "FCP Initiator"},
             {FC_RPORT_ROLE_IP_PORT, "IP Port"},
             {FC_FPORT_ROLE_FABRIC, "Fabric Port"},
             {FC_FPORT_ROLE_FABCTLR, "Fabric Controller"},
             {FC_FPORT_ROLE_DIRSRVR, "Directory Server"},
             {FC_FPORT_ROLE_TIMESRVR, "Time Server"},
             {FC_FPORT_ROLE_MGMTSRVR, "Management Server"},
             {FC_FPORT_ROLE_UNKNFABRIC, "Unknown Fabric Entity"}};

void put_port(Metrics &metrics, const Board &board, const Port &port, const Labels &of_board) {
  Labels labels = of_board;
  labels.emplace_back("remote_port", "rport-" + std::to_string(board.host) + ":0-" + std::to_string(port.id));
  Labels info = labels;
  info.emplace_back("port_name", digits_only(port.wwpn.wwn));
  info.emplace_back("node_name", digits_only(port.wwnn.wwn));
  info.emplace_back("port_id", human(port.port_id, Kind::hex24).substr(2));
  if (port.target_id) info.emplace_back("target", std::to_string(*port.target_id));
  metrics.put(metrics.remote_info, std::move(info), 1);
  if (const Text state = attribute(board.rport_dir(port), "port_state"))
    metrics.put(metrics.remote_online, labels, *state == "Online");
  for (const auto &role : roles) {
    Labels with_role = labels;
    with_role.emplace_back(std::string(prefix) + "remote_port_role", role.name);
    metrics.put(metrics.remote_role, std::move(with_role), (port.roles & role.bit) != 0);
  }
  if (port.target_id) metrics.put(metrics.remote_luns, labels, port.luns.size());
}

void write_text(std::ostream &out, const Metrics &metrics) {
  for (const Metric &metric : metrics.list()) {
    if (metric.points.empty()) continue;
    std::string name = prefix + metric.name;
    if (name.ends_with('_')) name.pop_back();
    out << "# TYPE " << name << ' ' << metric.type << "\n# HELP " << name << ' ' << escaped(metric.help)
        << '\n';
    for (const Point &point : metric.points) {
      out << name << suffix(metric) << '{';
      const char *comma = "";
      for (const auto &[key, value] : point.labels) {
        out << comma << key << "=\"" << escaped(value) << '"';
        comma = ",";
      }
      out << "} " << point.value << '\n';
    }
  }
  out << "# EOF\n";
}

Table json_table(const Metrics &metrics) {
  Table table{schema,
              {{"name", "NAME", Kind::text, In::rows},
               {"type", "TYPE", Kind::text, In::rows},
               {"labels", "LABELS", Kind::nested, In::rows},
               {"value", "VALUE", Kind::number, In::rows}},
              {}};
  for (const Metric &metric : metrics.list())
    for (const Point &point : metric.points) {
      Value labels = Value::object();
      for (const auto &[key, value] : point.labels)
        labels[key] = value;
      std::string name = prefix + metric.name;
      if (name.ends_with('_')) name.pop_back();
      table.rows.push_back({name + suffix(metric), metric.type, std::move(labels), point.value});
    }
  return table;
}

void collect(Context &ctx) {
  ctx.document(schema);
  Metrics metrics;
  for (const Board &board : ctx.boards.all()) {
    const Labels labels = {{"fc_host", "host" + std::to_string(board.host)}};
    put_board(metrics, board, labels);
    try {
      const Sample sample = read_statistics(board);
      for (size_t i = 0; i < counter_count; ++i)
        if (sample[i]) metrics.put_counter(i, labels, *sample[i]);
    } catch (const Failure &failure) {
      ctx.report(failure.problem());
    }
    for (const Port &port : ctx.boards.ports(board))
      put_port(metrics, board, port, labels);
  }
  if (ctx.json())
    ctx.show(json_table(metrics));
  else
    write_text(ctx.out, metrics);
}

}  // namespace

void add_metrics(CLI::App &root, Context &ctx) {
  add_verb(root, "metrics", "Counters and states as OpenMetrics text", ctx, collect);
}

}  // namespace hcxadm
