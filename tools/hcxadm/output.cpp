// SPDX-License-Identifier: BSD-3-Clause
// The one writer of tables and JSON rows. Texts of the fabric and of drivers are not trusted: control
// characters never reach the terminal, bytes that are not UTF-8 never break a JSON document.
#include "output.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ostream>

namespace hcxadm {
namespace {

constexpr char bold[] = "\033[1m";
constexpr char normal[] = "\033[0m";

bool right_aligned(Kind kind) {
  return kind == Kind::number || kind == Kind::size;
}

std::string printable(const std::string &text) {
  std::string clean = text;
  for (char &c : clean)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  return clean;
}

// Columns on a terminal, not bytes.
size_t width_of(const std::string &text) {
  return static_cast<size_t>(std::count_if(
      text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string hex_text(uint64_t value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%0*" PRIx64, digits, value);
  return text;
}

std::string joined(const Value &list) {
  std::string text;
  for (const Value &item : list) {
    if (!text.empty()) text += ", ";
    text += human(item, Kind::text);
  }
  return text.empty() ? "-" : text;
}

// How a column is laid out.
struct Cell {
  size_t width = 0;
  bool right = false;
};

std::string padded(const std::string &text, size_t width, bool right) {
  std::string fill(width - std::min(width, width_of(text)), ' ');
  return right ? fill + text : text + fill;
}

}  // namespace

std::string human_size(uint64_t bytes) {
  static constexpr const char *units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  size_t unit = 0;
  double value = static_cast<double>(bytes);
  while (value >= 1024 && unit + 1 < std::size(units)) {
    value /= 1024;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit && value < 100 ? "%.1f %s" : "%.0f %s", value, units[unit]);
  return text;
}

std::string human(const Value &value, Kind kind) {
  if (value.is_null()) return "-";
  if (kind == Kind::list && value.is_array()) return joined(value);
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_number_integer() || value.is_number_unsigned()) {
    switch (kind) {
      case Kind::hex:
        return hex_text(value.get<uint64_t>(), 1);
      case Kind::hex24:
        return hex_text(value.get<uint64_t>(), 6);
      case Kind::size:
        return human_size(value.get<uint64_t>());
      default:
        return value.dump();
    }
  }
  if (value.is_string()) {
    std::string text = printable(value.get<std::string>());
    return text.empty() ? "-" : text;
  }
  return printable(value.dump(-1, ' ', false, Value::error_handler_t::replace));
}

void write_rows(std::ostream &out, const Table &table, Style style) {
  std::vector<size_t> shown;
  for (size_t i = 0; i < table.columns.size(); ++i)
    if (table.columns[i].in == In::rows && table.columns[i].kind != Kind::nested) shown.push_back(i);

  std::vector<std::vector<std::string>> lines(1);
  for (size_t i : shown)
    lines[0].emplace_back(table.columns[i].title);
  for (const std::vector<Value> &row : table.rows) {
    std::vector<std::string> &line = lines.emplace_back();
    for (size_t i : shown)
      line.push_back(human(row.at(i), table.columns[i].kind));
  }
  std::vector<Cell> cells(shown.size());
  for (size_t i = 0; i < shown.size(); ++i) {
    cells[i].right = right_aligned(table.columns[shown[i]].kind);
    for (const auto &line : lines)
      cells[i].width = std::max(cells[i].width, width_of(line[i]));
  }
  if (!cells.empty() && !cells.back().right) cells.back().width = 0;  // no blanks at the end of a line

  for (const std::vector<std::string> &line : lines) {
    const bool header = &line == &lines.front();
    if (header && style.colour) out << bold;
    for (size_t i = 0; i < line.size(); ++i) {
      if (i > 0) out << (style.align ? "  " : "\t");
      out << (style.align ? padded(line[i], cells[i].width, cells[i].right) : line[i]);
    }
    if (header && style.colour) out << normal;
    out << '\n';
  }
}

void write_records(std::ostream &out, const Table &table, Style style) {
  size_t width = 0;
  for (const Column &column : table.columns)
    if (column.kind != Kind::nested) width = std::max(width, width_of(column.title));
  for (size_t r = 0; r < table.rows.size(); ++r) {
    if (r) out << '\n';
    for (size_t i = 0; i < table.columns.size(); ++i) {
      const Column &column = table.columns[i];
      if (column.kind == Kind::nested) continue;
      out << (style.colour ? bold : "") << (style.align ? padded(column.title, width, false) : column.title)
          << (style.colour ? normal : "") << (style.align ? "  " : "\t")
          << human(table.rows[r].at(i), column.kind) << '\n';
    }
  }
}

Value json_rows(const Table &table) {
  Value rows = Value::array();
  for (const std::vector<Value> &row : table.rows) {
    Value object = Value::object();
    for (size_t i = 0; i < table.columns.size(); ++i)
      object[table.columns[i].key] = row.at(i);
    rows.push_back(std::move(object));
  }
  return rows;
}

std::string wwn_text(const uint8_t wwn[8]) {
  char text[24];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", wwn[0], wwn[1], wwn[2], wwn[3],
                wwn[4], wwn[5], wwn[6], wwn[7]);
  return text;
}

Value wwn_value(const uint8_t wwn[8]) {
  if (std::all_of(wwn, wwn + 8, [](uint8_t byte) { return byte == 0; })) return {};
  return wwn_text(wwn);
}

}  // namespace hcxadm
