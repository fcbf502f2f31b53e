// SPDX-License-Identifier: BSD-3-Clause
// "version": of the tool and of the library it runs on. Needs no adapter.
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

void version(Context &ctx) {
  uint8_t text[20] = {};
  HCX_GetLibVer(text);
  ctx.show(make_table(
      schema, columns,
      std::vector<Row>{{"hcxadm", HCXADM_VERSION}, {"libhcx", reinterpret_cast<const char *>(text)}}));
}

}  // namespace

void add_version(CLI::App &root, Context &ctx) {
  add_verb(root, "version", "Show the versions of the tool and of the library", ctx, version);
}

}  // namespace hcxadm
