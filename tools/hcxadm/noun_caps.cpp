// SPDX-License-Identifier: BSD-3-Clause
// "caps": the kernel facilities that the library may use with the running driver. The library can print its
// tables but not hand them out, so standard output is caught while it does; one thread, for that moment.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <compare>
#include <cstdio>
#include <cstring>

#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.caps", 1, 0};

struct Row {
  const char *table;
  int index;
  std::string facility;
  bool usable;
  std::string min;
  std::string max;
  std::string help;
};

const ColumnOf<Row> columns[] = {
    {"table", "TABLE", Kind::text, In::rows, [](const Row &r) { return Value(r.table); }},
    {"index", "INDEX", Kind::number, In::rows, [](const Row &r) { return Value(r.index); }},
    {"facility", "FACILITY", Kind::text, In::rows, [](const Row &r) { return Value(r.facility); }},
    {"usable", "USE", Kind::flag, In::rows, [](const Row &r) { return Value(r.usable); }},
    {"min", "SINCE", Kind::text, In::rows, [](const Row &r) { return Value(r.min); }},
    {"max", "UNTIL", Kind::text, In::rows, [](const Row &r) { return Value(r.max); }},
    {"help", "WHAT", Kind::text, In::rows, [](const Row &r) { return Value(r.help); }},
};

// One table of the library's print-out: the words of its title, and how its rows name a facility.
struct Section {
  const char *title;
  const char *table;
  const char *separator;  // between the first and the second column of the facility
};

constexpr Section sections[] = {
    {"Sysfs class files", "class", "/"}, {"Sysfs device(s) files", "device", "/"},
    {"Netlink events", "netlink", ":"},  {"BSG ioctl commands", "request", ":"},
    {"BSG devices", "node", "/"},
};

Failure internal_failure(const char *what) {
  return Failure({.status = kFailed,
                  .tried = "reading the library's capability tables",
                  .board = {},
                  .code = {},
                  .name = what,
                  .todo = {}});
}

class CaughtOutput {
 public:
  CaughtOutput() {
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    caught_ = memfd_create("hcxadm", MFD_CLOEXEC);
    if (saved_ < 0 || caught_ < 0 || dup2(caught_, STDOUT_FILENO) < 0) {
      restore();
      throw internal_failure(std::strerror(errno));
    }
  }
  CaughtOutput(const CaughtOutput &) = delete;
  CaughtOutput &operator=(const CaughtOutput &) = delete;
  ~CaughtOutput() {
    restore();
    if (caught_ >= 0) close(caught_);
  }
  std::string text() {
    restore();
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = pread(caught_, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;)
      text.append(buffer, static_cast<size_t>(n));
    return text;
  }

 private:
  void restore() {
    if (saved_ < 0) return;
    std::fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    saved_ = -1;
  }
  int saved_ = -1;
  int caught_ = -1;
};

std::vector<std::string> split(const std::string &text, char separator) {
  std::vector<std::string> parts(1);
  for (char c : text)
    if (c == separator)
      parts.emplace_back();
    else
      parts.back() += c;
  return parts;
}

std::string trimmed(const std::string &text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// "  3   /sys/class/x <tab> file <tab> yes ..." has index and directory in one column, "  3 <tab> 0800 <tab>
// ..." not; the latter kind has the help text behind the upper version instead of in a column.
std::optional<Row> parse_row(const Section &section, const std::string &line) {
  std::vector<std::string> parts = split(line, '\t');
  std::string head = trimmed(parts[0]);
  const size_t blank = head.find(' ');
  std::optional<uint64_t> index = parse_number(head.substr(0, blank));
  if (!index) return {};
  if (blank != std::string::npos) parts.insert(parts.begin() + 1, trimmed(head.substr(blank)));
  if (parts.size() == 6) {
    const size_t end = parts[5].find(' ');
    if (end == std::string::npos) return {};
    parts.push_back(trimmed(parts[5].substr(end)));
    parts[5].resize(end);
  }
  if (parts.size() != 7) return {};
  std::replace(parts[4].begin(), parts[4].end(), ':', '.');
  std::replace(parts[5].begin(), parts[5].end(), ':', '.');
  return Row{section.table,
             static_cast<int>(*index),
             trimmed(parts[1]) + section.separator + trimmed(parts[2]),
             parts[3] == "yes",
             parts[4],
             parts[5],
             parts[6]};
}

std::vector<Row> parse_tables(const std::string &text) {
  std::vector<Row> rows;
  const Section *section = nullptr;
  for (const std::string &line : split(text, '\n')) {
    for (const Section &candidate : sections)
      if (line.ends_with(std::string(" - ") + candidate.title)) section = &candidate;
    if (!section) continue;
    if (std::optional<Row> row = parse_row(*section, line)) rows.push_back(*row);
  }
  return rows;
}

std::vector<Row> read_tables() {
  CaughtOutput caught;
  hcx_show_mmm(1);
  std::vector<Row> rows = parse_tables(caught.text());
  if (rows.empty()) throw internal_failure("no table was printed");
  return rows;
}

struct Version {
  uint32_t major;
  uint32_t minor;
  std::string text() const { return std::to_string(major) + "." + std::to_string(minor); }
  auto operator<=>(const Version &) const = default;
};

constexpr Version built_in{2, 0};

// What a program that uses the library may count on, in one record; its rows only for JSON.
struct Summary {
  std::optional<Version> driver;
  const std::vector<Row> &rows;
};

const ColumnOf<Summary> summary_columns[] = {
    {"driver_interface", "DRIVER INTERFACE", Kind::text, In::rows,
     [](const Summary &s) { return s.driver ? Value(s.driver->text()) : Value(); }},
    {"library_interface", "LIBRARY INTERFACE", Kind::text, In::rows,
     // The library goes down to an older driver's version, never above its own.
     [](const Summary &s) { return Value(std::min(s.driver.value_or(built_in), built_in).text()); }},
    {"facilities", "FACILITIES", Kind::nested, In::record,
     [](const Summary &s) { return json_rows(make_table(schema, columns, s.rows)); }},
};

void caps(Context &ctx, bool off_only) {
  ctx.document(schema);
  std::optional<Version> driver;
  if (!ctx.boards.all().empty()) {
    Version answer{};
    const int rc = send_bsg_get_mgmt_rev(&answer.major, &answer.minor);
    if (rc != 0) throw call_failure(Family::sys, rc, "asking the driver for its management version", "");
    driver = answer;
  }
  std::vector<Row> rows = read_tables();
  if (off_only) std::erase_if(rows, [](const Row &row) { return row.usable; });
  ctx.show(make_table(schema, summary_columns, std::vector{Summary{driver, rows}}), Layout::record);
  if (!driver)
    ctx.note(
        "there are no adapters of the vosk driver on this machine; this is what the library has built in");
  if (ctx.json()) return;
  if (!rows.empty()) ctx.out << '\n';
  ctx.show(make_table(schema, columns, rows));
}

}  // namespace

void add_caps(CLI::App &root, Context &ctx) {
  auto off_only = std::make_shared<bool>(false);
  CLI::App *verb = add_verb(root, "caps", "Show what the library may use with the running driver", ctx,
                            [off_only](Context &c) { caps(c, *off_only); });
  verb->add_flag("--off", *off_only, "Only what may not be used");
}

}  // namespace hcxadm
