// SPDX-License-Identifier: BSD-3-Clause
// "log": the library's log mask, shared by all processes of the machine through the switch file. Needs no
// adapter, and does not start the library: stopping it would switch logging off.
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.log", 1, 0};
constexpr uint32_t all_categories = 0x3ffff;

struct Category {
  const char *name;
  uint32_t bit;
  const char *help;
};

constexpr Category categories[] = {
    {"admin", LOG_ADMIN, "start, stop and reset"},
    {"authen", LOG_AUTHEN, "FC-SP authentication"},
    {"bsg", LOG_BSG, "requests to the driver"},
    {"diag", LOG_DIAG, "diagnostics"},
    {"hbaapi", LOG_HBAAPI, "attributes, statistics, mappings"},
    {"ioctl", LOG_IOCTL, "event registration, CT, ELS"},
    {"netlink", LOG_NETLINK, "event listener"},
    {"npiv", LOG_NPIV, "virtual ports"},
    {"sandiag", LOG_SANDIAG, "SAN diagnostics"},
    {"scsi", LOG_SCSI, "SCSI pass-through"},
    {"util", LOG_UTIL, "inventory and configuration regions"},
    {"mbox", LOG_MBOX, "mailbox commands"},
    {"trace", LOG_TRACE, "entry of every call"},
    {"device-name", LOG_DEVICE_NAME, "paths that are opened"},
    {"error", LOG_ERROR, "every failure"},
    {"mmm", LOG_MMM, "capability tables"},
    {"backtrace", LOG_BACKTRACE, "a stack dump before each line"},
    {"mbox-data", LOG_MBOX_DATA, "mailbox data"},
};

struct Row {
  Category category;
  uint32_t mask;
};

const ColumnOf<Row> columns[] = {
    {"category", "CATEGORY", Kind::text, In::rows, [](const Row &r) { return Value(r.category.name); }},
    {"bit", "BIT", Kind::hex, In::rows, [](const Row &r) { return Value(r.category.bit); }},
    {"on", "ON", Kind::flag, In::rows, [](const Row &r) { return Value((r.mask & r.category.bit) != 0); }},
    {"help", "WHAT", Kind::text, In::rows, [](const Row &r) { return Value(r.category.help); }},
};

void show(Context &ctx) {
  const uint32_t mask = current_log_mask();
  std::vector<Row> rows;
  for (const Category &category : categories)
    rows.push_back({category, mask});
  ctx.show(make_table(schema, columns, rows));
}

uint32_t mask_of_word(const std::string &word) {
  if (word == "all") return all_categories;
  for (const Category &category : categories)
    if (word == category.name) return category.bit;
  std::optional<uint64_t> number =
      word.starts_with("0x") ? parse_number(word, 16) : std::optional<uint64_t>();
  if (number && *number <= all_categories) return static_cast<uint32_t>(*number);
  throw Failure({.status = kUsage,
                 .tried = "no log category \"" + word + "\"",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = "\"hcxadm log\" lists them; \"all\" and a mask such as 0x4001 work too"});
}

void set(Context &ctx, uint32_t mask) {
  ctx.document(schema);
  if (ctx.dry_run) {
    ctx.note("would set the log mask to " + human(mask, Kind::hex));
    return;
  }
  libhcx_syslog_enable(mask);
  if (libhcx_logging_enable != mask)
    throw Failure({.status = kRefused,
                   .tried = "setting the log mask to " + human(mask, Kind::hex),
                   .board = {},
                   .code = {},
                   .name = "the switch file /tmp/libhcx_syslog_enable could not be written",
                   .todo = "run as its owner or as root"});
  if (ctx.json()) show(ctx);
}

void set_words(Context &ctx, const std::vector<std::string> &words) {
  ctx.document(schema);
  uint32_t mask = 0;
  for (const std::string &word : words)
    mask |= mask_of_word(word);
  set(ctx, mask);
}

}  // namespace

void add_log(CLI::App &root, Context &ctx) {
  CLI::App *noun = add_noun(root, "log", "The library's logging to syslog, in all processes");
  add_standard_verb(
      *noun, "show", "Show the categories and which of them are on", ctx, [](CLI::App &) {}, show);
  auto words = std::make_shared<std::vector<std::string>>();
  CLI::App *verb = add_verb(*noun, "set", "Switch on these categories and no others", ctx,
                            [words](Context &c) { set_words(c, *words); });
  verb->add_option("CATEGORY", *words, "Names, \"all\", or a mask such as 0x4001")
      ->required()
      ->delimiter(',')
      ->type_name("");
  add_verb(*noun, "off", "Switch logging off", ctx, [](Context &c) { set(c, 0); });
}

}  // namespace hcxadm
