// SPDX-License-Identifier: BSD-3-Clause
// The frame of the tool: global options, choice of the verb, error lines, exit statuses and the JSON
// document.
#include "hcxadm.h"

#include <algorithm>
#include <array>
#include <iostream>

#include "examples.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr char description[] = "Manages Fibre Channel and FCoE adapters of the vosk driver.";
constexpr char footer[] =
    "\nBOARD is a board number, hostN or the WWPN of an adapter port.\n"
    "Exit status: 0 done, 1 failed, 2 usage, 3 no such board or object, 4 not supported, 5 refused, 6 busy.\n"
    "\"hcxadm NOUN --help\" tells more; so does hcxadm(8).";

constexpr void (*noun_table[])(CLI::App &, Context &) = {
#define HCXADM_NOUN_ENTRY(name) add_##name,
    HCXADM_NOUNS(HCXADM_NOUN_ENTRY)
#undef HCXADM_NOUN_ENTRY
};

void add_global_options(CLI::App &root, Context &ctx) {
  root.add_option_function<std::string>(
          "-o,--output",
          [&ctx](const std::string &form) {
            if (form != "table" && form != "json")
              throw CLI::ValidationError("there is no output form \"" + form + "\", only table and json");
            ctx.format = form == "json" ? Format::json : Format::table;
          },
          "Form of the output")
      ->type_name("table|json");
  root.add_flag("-y,--yes", ctx.yes, "Do not ask before a change");
  root.add_flag("-n,--dry-run", ctx.dry_run, "Say what would be changed, change nothing");
  // main() acts on these two before the command line gets here.
  root.add_flag("--simulate")
      ->description("Run on a simulated machine; --simulate=FILE: on the one that FILE describes");
  root.add_option("--state")
      ->description("With --simulate: folder that keeps the simulated machine")
      ->type_name("DIR");
}

// "port 0 list", or one argument more than "port list" takes.
class StrayArgument : public CLI::ParseError {
 public:
  explicit StrayArgument(const std::string &word)
      : ParseError("StrayArgument", "\"" + word + "\" is one argument too many",
                   CLI::ExitCodes::ExtrasError) {}
};

// Edit distance, for "did you mean".
size_t distance(const std::string &a, const std::string &b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j)
    row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0]++;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t change = diagonal + (a[i - 1] != b[j - 1]);
      diagonal = row[j];
      row[j] = std::min({change, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[b.size()];
}

std::string suggestion(const CLI::App &app, const std::string &word) {
  std::string best;
  size_t best_distance = 3;
  for (const CLI::App *sub : app.get_subcommands([](const CLI::App *) { return true; })) {
    size_t d = distance(word, sub->get_name());
    if (sub->get_group().empty() || d >= best_distance || d >= word.size()) continue;
    best = sub->get_name();
    best_distance = d;
  }
  return best.empty() ? "" : " (did you mean \"" + best + "\"?)";
}

// The innermost command that was named, and the words for it.
const CLI::App &innermost(const CLI::App &root, std::string &words) {
  const CLI::App *app = &root;
  while (!app->get_subcommands().empty()) {
    app = app->get_subcommands().back();
    words += (words.empty() ? "" : " ") + app->get_name();
  }
  return *app;
}

// A mistyped verb below a verb, which was taken for what the noun's own command takes, its BOARD.
std::string taken_by_parent(const CLI::App &app) {
  if (!app.get_parent()) return {};
  for (const CLI::Option *option : app.get_parent()->get_options())
    if (option->get_positional() && !option->results().empty()) return option->results().back();
  return {};
}

Problem usage_problem(const CLI::App &root, const CLI::ParseError &error) {
  std::string words;
  const CLI::App &app = innermost(root, words);
  const std::vector<std::string> left = root.remaining(true);
  const bool has_verbs = !app.get_subcommands([](const CLI::App *) { return true; }).empty();
  Problem problem{.status = kUsage, .tried = error.what(), .board = {}, .code = {}, .name = {}, .todo = {}};
  auto stray = std::find_if(left.begin(), left.end(), [](const std::string &word) { return word[0] != '-'; });
  auto option = std::find_if(left.begin(), left.end(),
                             [](const std::string &w) { return w.size() > 1 && w[0] == '-'; });
  if (option != left.end())
    problem.tried = "unknown option \"" + *option + "\"";
  else if (stray != left.end() && has_verbs)
    problem.tried =
        (words.empty() ? "unknown command \"" : "unknown verb \"") + *stray + "\"" + suggestion(app, *stray);
  else if (stray != left.end())
    problem.tried = "\"" + *stray + "\" is one argument too many";
  else if (dynamic_cast<const CLI::RequiredError *>(&error) && has_verbs) {
    const std::string taken = taken_by_parent(app);
    problem.tried = words.empty()   ? "no command given"
                    : taken.empty() ? "no verb given"
                                    : "unknown verb \"" + taken + "\"" + suggestion(app, taken);
  }
  if (!words.empty()) problem.tried = words + ": " + problem.tried;
  problem.todo = "see \"hcxadm " + words + (words.empty() ? "" : " ") + "--help\"";
  std::replace(problem.tried.begin(), problem.tried.end(), '\n', ' ');
  return problem;
}

// What a shell asks for while it completes a line: the words that may follow, one a line.
// "VALUE --output json" for each word that an option or argument may be.
void print_values(const CLI::Option &option, const std::string &name, std::ostream &out) {
  // The description of a list of words is "{one,two}".
  std::string words = option.get_type_name();
  const size_t begin = words.find('{');
  const size_t end = words.find('}');
  if (begin == std::string::npos || end == std::string::npos) return;
  words = words.substr(begin + 1, end - begin - 1);
  for (const std::string &word : CLI::detail::split(words, ','))
    out << "VALUE " << name << ' ' << word << '\n';
}

void print_words(const CLI::App &root, const std::vector<std::string> &path, std::ostream &out) {
  const CLI::App *app = &root;
  for (const std::string &word : path)
    for (const CLI::App *sub : app->get_subcommands([](const CLI::App *) { return true; }))
      if (sub->get_name() == word) {
        app = sub;
        break;
      }
  for (const CLI::App *sub : app->get_subcommands([](const CLI::App *) { return true; }))
    if (!sub->get_group().empty()) out << sub->get_name() << '\n';
  for (const CLI::App *from : {app, &root}) {
    for (const CLI::Option *option : from->get_options())
      if (option->get_positional()) {
        out << option->get_name() << '\n';
        print_values(*option, option->get_name(), out);
      } else if (!option->get_lnames().empty() && (from == app || option->get_lnames()[0] != "help")) {
        out << "--" << option->get_lnames()[0] << '\n';
        print_values(*option, "--" + option->get_lnames()[0], out);
      }
    if (app == &root) break;
  }
}

void add_words(CLI::App &root, Context &ctx) {
  auto path = std::make_shared<std::vector<std::string>>();
  CLI::App *words = add_verb(root, "words", "Words that may follow, for shells", ctx,
                             [&root, path](Context &c) { print_words(root, *path, c.out); });
  words->add_option("PATH", *path);
  words->group("");
}

// JSON was asked for, as far as a command line that was not understood tells.
bool wants_json(const std::vector<std::string> &args) {
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--output=json" || args[i] == "-ojson") return true;
    if ((args[i] == "--output" || args[i] == "-o") && i + 1 < args.size() && args[i + 1] == "json")
      return true;
  }
  return false;
}

void perform(Context &ctx) {
  try {
    ctx.action(ctx);
  } catch (const Failure &failure) {
    ctx.report(failure.problem());
  } catch (const std::bad_alloc &) {
    ctx.report(
        {.status = kFailed, .tried = "out of memory", .board = {}, .code = {}, .name = {}, .todo = {}});
  }
  ctx.boards.down();
}

}  // namespace

void Context::show(const Table &table, Layout layout) {
  schema_ = table.schema;
  if (json()) {
    for (Value &row : json_rows(table))
      data_.push_back(std::move(row));
    return;
  }
  Style style{.align = aligned(), .colour = terminal.out && !std::getenv("NO_COLOR")};
  if (table.rows.empty()) return;
  if (layout == Layout::rows)
    write_rows(out, table, style);
  else
    write_records(out, table, style);
}

void Context::report(const Problem &problem) {
  if (status_ == kDone) status_ = problem.status;
  const std::string text = text_of(problem);
  out.flush();
  err << "hcxadm: " << (command.empty() ? "" : command + ": ") << text << '\n';
  errors_.push_back({{"status", static_cast<int>(problem.status)},
                     {"tried", problem.tried},
                     {"board", problem.board.empty() ? Value() : Value(problem.board)},
                     {"code", or_null(problem.code)},
                     {"reason", problem.name.empty() ? Value() : Value(problem.name)},
                     {"todo", problem.todo.empty() ? Value() : Value(problem.todo)},
                     {"text", text}});
}

void Context::note(const std::string &text) {
  if (!json()) err << "hcxadm: " << (command.empty() ? "" : command + ": ") << text << '\n';
}

bool Context::confirm(const std::string &what) {
  if (dry_run) {  // said to programs too, which read the standard output only
    err << "hcxadm: " << (command.empty() ? "" : command + ": ") << "would " << what << '\n';
    return false;
  }
  if (yes) return true;
  err << "About to " << what << ". Go on? [y/N] " << std::flush;
  std::string answer;
  std::getline(in, answer);
  if (!terminal.in) err << '\n';
  if (answer == "y" || answer == "Y" || answer == "yes") return true;
  throw Failure({.status = kRefused,
                 .tried = what,
                 .board = {},
                 .code = {},
                 .name = "not confirmed",
                 .todo = "answer \"y\" or give --yes"});
}

int Context::finish() {
  if (json() && (!streamed || !errors_.empty())) {
    Value document = {
        {"schema", {{"name", schema_.name}, {"major", schema_.major}, {"minor", schema_.minor}}},
        {"data", std::move(data_)},
        {"errors", std::move(errors_)}};
    out << document.dump(streamed ? -1 : 2, ' ', false, Value::error_handler_t::replace) << '\n';
  }
  out.flush();
  if (!out && status_ == kDone) {
    err << "hcxadm: writing the output failed\n";
    status_ = kFailed;
  }
  return status_;
}

namespace {

// "link persist on", without the tool's name.
std::string words_of(const CLI::App &app) {
  return app.get_parent()
             ? words_of(*app.get_parent()) + (app.get_parent()->get_parent() ? " " : "") + app.get_name()
             : std::string();
}

}  // namespace

CLI::App *add_verb(CLI::App &parent, const char *name, const char *help, Context &ctx,
                   std::function<void(Context &)> action) {
  CLI::App *verb = parent.add_subcommand(name, help);
  verb->fallthrough();
  verb->callback([&ctx, command = words_of(*verb), action = std::move(action)] {
    ctx.command = command;
    ctx.action = action;
  });
  return verb;
}

CLI::App *add_noun(CLI::App &root, const char *name, const char *help) {
  CLI::App *noun = root.add_subcommand(name, help);
  noun->fallthrough();
  noun->require_subcommand(1);
  return noun;
}

void add_standard_verb(CLI::App &noun, const char *name, const char *help, Context &ctx,
                       const std::function<void(CLI::App &)> &arguments,
                       std::function<void(Context &)> action) {
  CLI::App *verb =
      add_verb(noun, name, std::string(help).append(" (the verb if none is given)").c_str(), ctx, action);
  arguments(*verb);
  arguments(noun);
  noun.require_subcommand(0, 1);
  CLI::App *named = &noun;
  noun.callback([&ctx, named, command = words_of(noun), action = std::move(action)] {
    if (named->get_subcommands().empty()) {
      for (const CLI::Option *option :
           named->get_options())  // a verb that was mistyped looks like an argument
        if (option->get_positional() && option->count() > 0)
          if (const std::string known = suggestion(*named, option->results().front()); !known.empty())
            throw CLI::ValidationError("unknown verb \"" + option->results().front() + "\"" + known);
      ctx.command = command;
      ctx.action = action;
      return;
    }
    for (const CLI::Option *option : named->get_options())
      if (option->get_positional() && option->count() > 0) throw StrayArgument(option->results().front());
  });
}

int run(const std::vector<std::string> &args, std::istream &in, std::ostream &out, std::ostream &err,
        Terminal terminal) {
  Context ctx(in, out, err, terminal);
  CLI::App root(description, "hcxadm");
  root.require_subcommand(1);
  root.set_version_flag("--version", HCXADM_VERSION);
  add_global_options(root, ctx);
  for (auto add : noun_table)
    add(root, ctx);
  add_words(root, ctx);
  add_examples(root, "\nThe options of \"hcxadm --help\" work here as well.");
  root.footer(footer);                                        // last: subcommands would inherit it
  std::vector<std::string> line(args.rbegin(), args.rend());  // as the parser wants it
  if (!line.empty() && line.back() == "help") {
    line.pop_back();
    line.insert(line.begin(), "--help");
  }
  try {
    root.parse(std::move(line));
  } catch (const CLI::Success &success) {  // --help, --version
    return root.exit(success, out, err);
  } catch (const CLI::ParseError &error) {
    if (wants_json(args)) ctx.format = Format::json;
    ctx.command.clear();  // the message has the words that were understood
    ctx.report(usage_problem(root, error));
    return ctx.finish();
  }
  perform(ctx);
  return ctx.finish();
}

}  // namespace hcxadm
