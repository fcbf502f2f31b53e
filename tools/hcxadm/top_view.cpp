// SPDX-License-Identifier: BSD-3-Clause
// The tables of a frame, cut to the screen.
#include "top_view.h"

#include <algorithm>
#include <sstream>

namespace hcxadm {
namespace {

constexpr size_t event_lines = 5;  // that ports leave to events when there is not room for all

Value rate_value(const std::optional<double> &rate) {
  return rate ? Value(rounded_rate(*rate)) : Value();
}

Value time_value(const std::string &time) {
  return time.empty() ? Value() : Value(time);
}

// 1.2 MB: bytes per second in the units of links, which are decimal.
Value rate_text(const std::optional<double> &rate) {
  static constexpr const char *units[] = {"", "k", "M", "G", "T"};
  if (!rate) return {};
  double value = *rate;
  size_t unit = 0;
  for (; value >= 9999.5 && unit + 1 < std::size(units); ++unit)
    value /= 1000;
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 && value < 100 ? "%.1f%s" : "%.0f%s", value, units[unit]);
  return text;
}

Value role_text(const TopPort &p) {
  const int roles = p.sight.port.roles;
  if (roles & FC_RPORT_ROLE_FCP_TARGET) return "target";
  if (roles & FC_RPORT_ROLE_FCP_INITIATOR) return "initiator";
  return roles ? Value("fabric") : Value();
}

// The time of day is enough on a screen: 10:42:07
Value clock_text(const std::string &time) {
  const size_t begin = time.find('T');
  return begin == std::string::npos ? time_value(time) : Value(time.substr(begin + 1, 8));
}

// Right-aligned, though text.
std::string right(const Value &value, size_t width) {
  const std::string text = human(value, Kind::text);
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

const ColumnOf<TopBoard> board_columns[] = {
    {"", "BOARD", Kind::number, In::rows, [](const TopBoard &b) { return Value(b.sight.board.number); }},
    {"", "HOST", Kind::text, In::rows,
     [](const TopBoard &b) { return Value("host" + std::to_string(b.sight.board.host)); }},
    {"", "STATE", Kind::text, In::rows, [](const TopBoard &b) { return or_null(b.sight.state); }},
    {"", "SPEED", Kind::text, In::rows, [](const TopBoard &b) { return or_null(b.sight.speed); }},
    {"", "TX B/s", Kind::text, In::rows,
     [](const TopBoard &b) { return Value(right(rate_text(b.tx_bytes), 6)); }},
    {"", "RX B/s", Kind::text, In::rows,
     [](const TopBoard &b) { return Value(right(rate_text(b.rx_bytes), 6)); }},
    {"", "TX fr/s", Kind::text, In::rows,
     [](const TopBoard &b) { return Value(right(rate_text(b.tx_frames), 7)); }},
    {"", "RX fr/s", Kind::text, In::rows,
     [](const TopBoard &b) { return Value(right(rate_text(b.rx_frames), 7)); }},
    {"", "ERR/s", Kind::text, In::rows,
     [](const TopBoard &b) { return Value(right(rate_text(b.errors), 5)); }},
    {"", "PORTS", Kind::number, In::rows, [](const TopBoard &b) { return Value(b.sight.ports.size()); }},
    {"", "SINCE", Kind::text, In::rows, [](const TopBoard &b) { return clock_text(b.since); }},
    {"", "WWPN", Kind::text, In::rows, [](const TopBoard &b) { return wwn_value(b.sight.board.wwpn.wwn); }},
    {"", "LINK", Kind::text, In::rows, [](const TopBoard &b) { return or_null(b.sight.link); }},
};

const ColumnOf<TopPort> port_columns[] = {
    {"", "BOARD", Kind::number, In::rows, [](const TopPort &p) { return Value(p.board); }},
    {"", "REMOTE PORT", Kind::text, In::rows,
     [](const TopPort &p) { return wwn_value(p.sight.port.wwpn.wwn); }},
    {"", "PORT ID", Kind::hex24, In::rows, [](const TopPort &p) { return Value(p.sight.port.port_id); }},
    {"", "ROLE", Kind::text, In::rows, role_text},
    {"", "STATE", Kind::text, In::rows, [](const TopPort &p) { return or_null(p.sight.state); }},
    {"", "LUNS", Kind::number, In::rows, [](const TopPort &p) { return Value(p.sight.port.luns.size()); }},
    {"", "SINCE", Kind::text, In::rows, [](const TopPort &p) { return clock_text(p.since); }},
};

const ColumnOf<Event> event_columns[] = {
    {"", "EVENT", Kind::text, In::rows, [](const Event &e) { return clock_text(e.time); }},
    {"", "BOARD", Kind::number, In::rows, [](const Event &e) { return Value(e.board); }},
    {"", "KIND", Kind::text, In::rows, [](const Event &e) { return Value(e.kind); }},
    {"", "DETAIL", Kind::text, In::rows, [](const Event &e) { return Value(detail_of(e)); }},
};

const ColumnOf<TopBoard> board_keys[] = {
    {"board", "", Kind::number, In::rows, [](const TopBoard &b) { return Value(b.sight.board.number); }},
    {"host", "", Kind::text, In::rows,
     [](const TopBoard &b) { return Value("host" + std::to_string(b.sight.board.host)); }},
    {"wwpn", "", Kind::text, In::rows, [](const TopBoard &b) { return wwn_value(b.sight.board.wwpn.wwn); }},
    {"state", "", Kind::text, In::rows, [](const TopBoard &b) { return or_null(b.sight.state); }},
    {"state_since", "", Kind::text, In::rows, [](const TopBoard &b) { return time_value(b.since); }},
    {"link", "", Kind::text, In::rows, [](const TopBoard &b) { return or_null(b.sight.link); }},
    {"speed", "", Kind::text, In::rows, [](const TopBoard &b) { return or_null(b.sight.speed); }},
    {"tx_bytes_per_second", "", Kind::number, In::rows,
     [](const TopBoard &b) { return rate_value(b.tx_bytes); }},
    {"rx_bytes_per_second", "", Kind::number, In::rows,
     [](const TopBoard &b) { return rate_value(b.rx_bytes); }},
    {"tx_frames_per_second", "", Kind::number, In::rows,
     [](const TopBoard &b) { return rate_value(b.tx_frames); }},
    {"rx_frames_per_second", "", Kind::number, In::rows,
     [](const TopBoard &b) { return rate_value(b.rx_frames); }},
    {"errors_per_second", "", Kind::number, In::rows, [](const TopBoard &b) { return rate_value(b.errors); }},
};

const ColumnOf<TopPort> port_keys[] = {
    {"board", "", Kind::number, In::rows, [](const TopPort &p) { return Value(p.board); }},
    {"wwpn", "", Kind::text, In::rows, [](const TopPort &p) { return wwn_value(p.sight.port.wwpn.wwn); }},
    {"port_id", "", Kind::number, In::rows, [](const TopPort &p) { return Value(p.sight.port.port_id); }},
    {"role", "", Kind::text, In::rows, role_text},
    {"state", "", Kind::text, In::rows, [](const TopPort &p) { return or_null(p.sight.state); }},
    {"state_since", "", Kind::text, In::rows, [](const TopPort &p) { return time_value(p.since); }},
    {"luns", "", Kind::number, In::rows, [](const TopPort &p) { return Value(p.sight.port.luns.size()); }},
};

// A table as lines; rows for which `bad` holds stand out.
template <class Row, class Columns, class Bad>
std::vector<ScreenLine> table_lines(const Columns &columns, const std::vector<Row> &rows, Bad bad) {
  std::ostringstream text;
  write_rows(text, make_table(top_schema, columns, rows), {.align = true, .colour = false});
  std::istringstream stream(text.str());
  std::vector<ScreenLine> lines;
  for (std::string line; std::getline(stream, line);) {
    const size_t row = lines.size();
    lines.push_back({line, row == 0 ? Paint::header : bad(rows[row - 1]) ? Paint::bad : Paint::plain});
  }
  return lines;
}

std::string summary(const TopFrame &frame) {
  const auto down = [](const auto &all) {
    return std::count_if(all.begin(), all.end(), [](const auto &one) { return !is_up(one.sight.state); });
  };
  size_t luns = 0;
  for (const TopPort &port : frame.ports)
    luns += port.sight.port.luns.size();
  std::ostringstream text;
  text << "hcxadm top  " << frame.time << "  boards " << frame.boards.size() << ", down "
       << down(frame.boards) << "  remote ports " << frame.ports.size() << ", down " << down(frame.ports)
       << "  LUNs " << luns << "  events " << frame.events.size();
  return text.str();
}

// Appends at most `room` lines of a block and an empty one before it; says how many were left out.
void append(std::vector<ScreenLine> &lines, std::vector<ScreenLine> block, size_t room) {
  if (room < 3 || block.empty()) return;  // nothing between an empty line and a header is of use
  --room;
  if (block.size() > room) {
    const size_t left_out = block.size() - (room - 1);
    block.resize(room - 1);
    block.push_back({"  and " + std::to_string(left_out) + " more", Paint::plain});
  }
  lines.emplace_back();
  lines.insert(lines.end(), block.begin(), block.end());
}

}  // namespace

std::string cut(const std::string &text, size_t columns) {
  size_t end = 0;
  for (size_t width = 0; end < text.size(); ++end)
    if ((static_cast<unsigned char>(text[end]) & 0xc0) != 0x80 && ++width > columns) break;
  return text.substr(0, end);
}

std::vector<ScreenLine> lines_of(const TopFrame &frame, const TopView &view, ScreenSize size) {
  const size_t rows = size.rows ? size.rows : SIZE_MAX;
  std::vector<ScreenLine> lines = {{summary(frame), Paint::plain}};
  const auto board_bad = [](const TopBoard &b) { return !is_up(b.sight.state) || b.errors.value_or(0) > 0; };
  append(lines, table_lines(board_columns, frame.boards, board_bad), rows - lines.size());
  std::vector<ScreenLine> ports, events;
  if (view.ports)
    ports = table_lines(port_columns, frame.ports, [](const TopPort &p) { return !is_up(p.sight.state); });
  if (view.events) {
    std::vector<Event> latest(frame.events.rbegin(), frame.events.rend());
    events = table_lines(event_columns, latest, [](const Event &) { return false; });
  }
  size_t room = rows - std::min(rows, lines.size());
  const size_t for_events = frame.events.empty() ? 0 : std::min(events.size(), event_lines + 1) + 1;
  const size_t before = lines.size();
  append(lines, std::move(ports), view.events && room > for_events ? room - for_events : room);
  room -= lines.size() - before;
  if (!frame.events.empty()) append(lines, std::move(events), room);
  if (lines.size() > rows) lines.resize(rows);
  if (size.columns)
    for (ScreenLine &line : lines)
      line.text = cut(line.text, size.columns);
  return lines;
}

Value value_of(const TopFrame &frame) {
  Value events = Value::array();
  for (const Event &event : frame.events)
    events.push_back(event_value(event));
  return {{"time", frame.time},
          {"seconds", rate_value(frame.seconds)},
          {"boards", json_rows(make_table(top_schema, board_keys, frame.boards))},
          {"ports", json_rows(make_table(top_schema, port_keys, frame.ports))},
          {"events", std::move(events)}};
}

}  // namespace hcxadm
