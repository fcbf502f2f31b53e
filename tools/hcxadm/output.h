// SPDX-License-Identifier: BSD-3-Clause
// Tables: rows and columns are described once and come out as text for people or as JSON. A value is what
// JSON would hold (null for absent, numbers as numbers, arrays for lists); the column's kind says how a
// person reads it.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace hcxadm {

using Value = nlohmann::ordered_json;

// Name and version of a JSON document's form. A new key raises `minor`, anything else `major`.
struct Schema {
  const char *name;
  int major;
  int minor;
};

enum class Kind {
  text,
  number,
  hex,     // 0x1a
  hex24,   // 0x01a2b3, FC addresses
  size,    // bytes: 1.5 TiB
  flag,    // yes, no
  list,    // a, b, c
  nested,  // for JSON only
};

enum class Layout { rows, record };

enum class In {
  rows,    // everywhere
  record,  // left out of the layout with one line a row
};

struct Column {
  const char *key;    // of JSON
  const char *title;  // with its unit
  Kind kind;
  In in;
};

struct Table {
  Schema schema;
  std::vector<Column> columns;
  std::vector<std::vector<Value>> rows;
};

// A column together with the way to get its value from a row's record.
template <class Row>
struct ColumnOf {
  const char *key;
  const char *title;
  Kind kind;
  In in;
  Value (*get)(const Row &);
};

template <class Row, class Columns>
Table make_table(const Schema &schema, const Columns &columns, const std::vector<Row> &rows) {
  Table table{schema, {}, {}};
  for (const ColumnOf<Row> &column : columns)
    table.columns.push_back({column.key, column.title, column.kind, column.in});
  for (const Row &row : rows) {
    std::vector<Value> &values = table.rows.emplace_back();
    for (const ColumnOf<Row> &column : columns)
      values.push_back(column.get(row));
  }
  return table;
}

// How text is laid out.
struct Style {
  bool align = false;
  bool colour = false;
};

void write_rows(std::ostream &out, const Table &table, Style style);
void write_records(std::ostream &out, const Table &table, Style style);
// The rows as an array of objects.
Value json_rows(const Table &table);

// ---- Values ----

inline Value or_null(const std::optional<std::string> &text) {
  return text ? Value(*text) : Value();
}
template <class Number>
Value or_null(const std::optional<Number> &number) {
  return number ? Value(*number) : Value();
}
// 10:00:00:00:c9:a1:b2:c3; null for the all-zero name of a port that has none.
Value wwn_value(const uint8_t wwn[8]);
std::string wwn_text(const uint8_t wwn[8]);

// What a person reads of one value: "-" for absent, control characters replaced.
std::string human(const Value &value, Kind kind);
std::string human_size(uint64_t bytes);

}  // namespace hcxadm
