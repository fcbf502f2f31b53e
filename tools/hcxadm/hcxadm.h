// SPDX-License-Identifier: BSD-3-Clause
// The command-line tool: what all verbs share. A verb gets a Context, shows tables through it and throws
// Failure when it cannot go on. One thread; a Context lives for one command line.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "board.h"
#include "output.h"
#include "status.h"

namespace hcxadm {

// Which of the three streams a person looks at.
struct Terminal {
  bool in = false;
  bool out = false;
  bool err = false;
};

enum class Format {
  automatic,  // table on a terminal, columns separated by one tab elsewhere
  table,
  json,
};

class Context {
 public:
  Context(std::istream &in_, std::ostream &out_, std::ostream &err_, Terminal terminal_)
      : in(in_), out(out_), err(err_), terminal(terminal_) {}

  std::istream &in;
  std::ostream &out;
  std::ostream &err;
  const Terminal terminal;
  Format format = Format::automatic;
  bool yes = false;
  bool dry_run = false;
  // The verb has written its JSON itself, one document a line; only errors are left to be told at the end.
  bool streamed = false;
  std::string command;  // "port list", for messages
  std::function<void(Context &)> action;
  Boards boards;

  bool json() const { return format == Format::json; }
  // Whether columns are padded; otherwise one tab stands between them.
  bool aligned() const { return format == Format::table || terminal.out; }
  // Prints rows (brief columns) or one record per row (all columns); as JSON every column, at the end.
  void show(const Table &table, Layout layout = Layout::rows);
  // Names the JSON document of a command that ends without showing a table. show() does this by itself.
  void document(const Schema &schema) { schema_ = schema; }
  // Something failed, but the command goes on. The first problem decides the exit status.
  void report(const Problem &problem);
  // A line for the person at stderr; not an error, left out of JSON.
  void note(const std::string &text);
  // Before anything that changes flash, link or virtual ports: says what will happen and asks. False: do not
  // do it, and that is fine (--dry-run). Throws Failure when the answer was not yes.
  bool confirm(const std::string &what);

  // Writes the JSON document, if one is due; the exit status.
  int finish();

 private:
  Schema schema_{"hcxadm", 1, 0};
  Value data_ = Value::array();
  Value errors_ = Value::array();
  int status_ = kDone;
};

// Runs one command line (without the program's name). For main() and for the tests.
int run(const std::vector<std::string> &args, std::istream &in, std::ostream &out, std::ostream &err,
        Terminal terminal = {});

// ---- For the files that define nouns ----

// A noun of the command line that is a command in itself, or one verb of a noun. `action` runs once the whole
// command line has been understood.
CLI::App *add_verb(CLI::App &parent, const char *name, const char *help, Context &ctx,
                   std::function<void(Context &)> action);
// A noun with verbs. `noun` alone does what its verb `standard` does, so its arguments are added to both by
// `arguments`.
CLI::App *add_noun(CLI::App &root, const char *name, const char *help);
void add_standard_verb(CLI::App &noun, const char *name, const char *help, Context &ctx,
                       const std::function<void(CLI::App &)> &arguments,
                       std::function<void(Context &)> action);

inline constexpr char board_help[] = "Board number, hostN or WWPN";

}  // namespace hcxadm
