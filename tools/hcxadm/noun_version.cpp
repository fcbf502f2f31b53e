// SPDX-License-Identifier: BSD-3-Clause
// "version": of the tool and of the library it runs on, which needs no adapter; with --driver of the driver too.
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.version", 1, 0};

struct Row {
  const char *component;
  std::string version;
};

const ColumnOf<Row> columns[] = {
    {"component", "COMPONENT", Kind::text, In::rows, [](const Row &r) { return Value(r.component); }},
    {"version", "VERSION", Kind::text, In::rows, [](const Row &r) { return Value(r.version); }},
};

// The driver's own version as the first board tells it, and that of its management interface.
void add_driver(Context &ctx, std::vector<Row> &rows) {
  const std::vector<Board> &boards = ctx.boards.all();
  if (boards.empty())
    throw Failure({.status = kNoSuch,
                   .tried = "asking the driver",
                   .board = {},
                   .code = {},
                   .name = "there is no adapter",
                   .todo = {}});
  uint32_t major = 0, minor = 0;
  const int result = static_cast<int>(GetMgmtRev(&major, &minor));
  if (result != 0) throw call_failure(Family::sys, result, "asking the driver for its revision", {});
  rows.push_back({"driver", boards.front().driver.value_or("unknown")});
  rows.push_back({"driver interface", std::to_string(major) + "." + std::to_string(minor)});
}

void version(Context &ctx, bool driver) {
  uint8_t text[20] = {};
  HCX_GetLibVer(text);
  std::vector<Row> rows{{"hcxadm", HCXADM_VERSION}, {"libhcx", reinterpret_cast<const char *>(text)}};
  ctx.document(schema);
  if (driver) add_driver(ctx, rows);
  ctx.show(make_table(schema, columns, rows));
}

}  // namespace

void add_version(CLI::App &root, Context &ctx) {
  auto driver = std::make_shared<bool>(false);
  CLI::App *verb = add_verb(root, "version", "Show the versions of the tool and of the library", ctx,
                            [driver](Context &c) { version(c, *driver); });
  verb->add_flag("--driver", *driver, "Ask the driver too");
}

}  // namespace hcxadm
