// SPDX-License-Identifier: BSD-3-Clause
// Habits that all commands share, held against the tool's own table of commands and options ("words") and its table
// of examples: manual pages that say neither less nor more, help with examples, every way of naming a board.
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "examples.h"
#include "sim_machine.h"
#include "statistics.h"
#include "tool_fixture.h"

namespace {

using hcxadm::Example;
using Words = std::vector<std::string>;

// The tool without a fixture's test around it.
struct Tried : Tool {
  using Tool::err;
  using Tool::out;
  using Tool::words;
  int status;
  explicit Tried(const Words &args) { status = run_words(args); }
};

std::string joined(const Words &words) {
  std::string text;
  for (const std::string &word : words)
    text.append(text.empty() ? "" : " ").append(word);
  return text;
}

bool starts_with(const Words &words, const Words &begin) {
  return words.size() >= begin.size() && std::equal(begin.begin(), begin.end(), words.begin());
}

// A command that does something: its words, options and arguments.
struct Command {
  Words path;
  std::set<std::string> options;
  Words arguments;
};

std::set<std::string> root_options() {
  std::set<std::string> options = {"--help"};
  for (const std::string &word : Tried::words(Tried({"words"}).out))
    if (word.starts_with("--")) options.insert(word);
  return options;
}

void add_commands(const Words &path, std::vector<Command> &found) {
  static const std::set<std::string> everywhere = root_options();
  Words args = {"words"};
  args.insert(args.end(), path.begin(), path.end());
  Command command{path, {}, {}};
  bool verbs = false;
  std::istringstream lines(Tried(args).out);
  for (std::string word; std::getline(lines, word);) {
    if (word.starts_with("VALUE ")) continue;
    if (word.starts_with("--")) {
      if (!everywhere.contains(word)) command.options.insert(word);
    } else if (isupper(static_cast<unsigned char>(word[0]))) {
      command.arguments.push_back(word);
    } else {
      verbs = true;
      Words below = path;
      below.push_back(word);
      add_commands(below, found);
    }
  }
  if (!verbs) found.push_back(command);
}

std::vector<Command> commands() {
  std::vector<Command> found;
  add_commands({}, found);
  return found;
}

std::string file_text(const std::string &name) {
  std::ifstream file(std::string(HCX_SOURCE_DIR "/docs/man/") + name);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A line of a page in the words that a reader sees.
Words plain(const std::string &line) {
  static const std::set<std::string> markup = {"Oo", "Oc", "Op", "Cm", "Ar", "Ns",
                                               "Po", "Pc", "Sm", "No", "|"};
  Words words;
  Words source = Tried::words(line);
  for (size_t i = 0; i < source.size(); ++i) {
    std::string word = source[i].starts_with('.') ? source[i].substr(1) : source[i];
    if (word == "Fl" && i + 1 < source.size()) {
      word = source[++i] == "Fl" && i + 1 < source.size() ? "--" + source[++i] : "-" + source[i];
      words.push_back(word);
    } else if (!markup.contains(word)) {
      words.push_back(word);
    }
  }
  return words;
}

struct Page {
  std::vector<Words> synopsis;    // a line each
  std::set<std::string> options;  // named anywhere
  std::string text;               // without the escapes of the markup
};

Page read_page(const std::string &name) {
  Page page;
  std::istringstream lines(file_text(name));
  bool synopsis = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(".Sh ")) synopsis = line == ".Sh SYNOPSIS";
    const bool markup = line.starts_with('.') && !line.starts_with(".Ql ");  // these quote commands
    const Words words = markup ? plain(line) : Words();
    for (const std::string &word : words)
      if (word.starts_with("--")) page.options.insert(word);
    if (synopsis && line.starts_with(".Cm "))
      page.synopsis.push_back(words);
    else if (synopsis && line.starts_with(".Op ") && !page.synopsis.empty())
      page.synopsis.back().insert(page.synopsis.back().end(), words.begin(), words.end());
    page.text += std::regex_replace(line, std::regex(R"(\\e)"), "\\") + "\n";
  }
  return page;
}

// Says neither less nor more than the tool's table has.
TEST(HcxadmHabits, EachNounHasAPageThatNamesItsCommandsAndOptionsAndNoOthers) {
  const std::set<std::string> everywhere = root_options();
  std::map<std::string, std::set<std::string>> options;  // by noun
  for (const Command &command : commands()) {
    const std::string &noun = command.path[0];
    const std::string name = joined(command.path);
    const Page page = read_page("hcxadm-" + noun + ".8");
    ASSERT_FALSE(page.synopsis.empty()) << "no page for " << noun;
    std::set<std::string> said;  // one command may have several lines
    for (const Words &line : page.synopsis)
      if (starts_with(line, command.path)) said.insert(line.begin(), line.end());
    EXPECT_FALSE(said.empty()) << "no synopsis of " << name;
    for (const std::string &option : command.options)
      EXPECT_TRUE(said.contains(option)) << name << " " << option;
    for (const std::string &argument : command.arguments)
      EXPECT_TRUE(said.contains(argument)) << name << " " << argument;
    options[noun].insert(command.options.begin(), command.options.end());
  }
  const std::string overview = file_text("hcxadm.8");
  for (const auto &[noun, known] : options) {
    EXPECT_NE(overview.find("Xr hcxadm-" + noun + " 8"), std::string::npos) << noun;
    for (const std::string &option : read_page("hcxadm-" + noun + ".8").options)
      EXPECT_TRUE(known.contains(option) || everywhere.contains(option))
          << "hcxadm-" << noun << ": " << option;
  }
  for (const auto &entry : std::filesystem::directory_iterator(HCX_SOURCE_DIR "/docs/man")) {
    const std::string name = entry.path().stem();
    const bool known = !name.starts_with("hcxadm-") || options.contains(name.substr(7));
    EXPECT_TRUE(known) << name;
  }
  for (const std::string &option : everywhere)
    EXPECT_TRUE(read_page("hcxadm.8").options.contains(option)) << option;
  for (const std::string &option : read_page("hcxadm.8").options)
    EXPECT_TRUE(everywhere.contains(option)) << option;
}

TEST(HcxadmHabits, EachCommandHasExamplesInItsHelpAndOnItsPage) {
  for (const Command &command : commands()) {
    const std::string name = joined(command.path);
    size_t count = 0;
    for (const Example &example : hcxadm::examples()) {
      if (example.command != name) continue;
      ++count;
      for (size_t depth = 1; depth <= command.path.size(); ++depth) {
        Words args(command.path.begin(), command.path.begin() + static_cast<ptrdiff_t>(depth));
        args.push_back("--help");
        EXPECT_NE(Tried(args).out.find(example.line), std::string::npos)
            << joined(args) << ": " << example.line;
      }
      EXPECT_NE(read_page("hcxadm-" + command.path[0] + ".8").text.find(example.line), std::string::npos)
          << example.line;
    }
    EXPECT_GT(count, 0U) << name << " has no example";
  }
}

// ---- every example, run ----

double passed = 0;

// What an example's command says and does on a machine of its own.
struct Played {
  int status = -1;
  std::string out, err, writes;  // the latter to attributes

  explicit Played(const Words &args) {
    sim::Machine machine;
    sim::default_san(machine);
    const sim::Installed installed(machine);
    Tried tried(args);
    status = tried.status;
    out = tried.out;
    err = tried.err;
    for (const sim::Write &write : machine.writes())
      writes.append(write.path).append(" ").append(write.text).append("\n");
  }
  bool operator==(const Played &) const = default;
};

// The words behind "hcxadm" of an example that can run here, none for the others.
Words words_of(const Example &example) {
  static const std::set<std::string> skipped = {"event follow", "event history",
                                                "top"};  // these take their time
  const std::string line = example.line;
  if (skipped.contains(example.command) || line.find("--password-fd") != std::string::npos) return {};
  Words args = Tried::words(line.substr(0, line.find(" | ")));
  args.erase(args.begin());
  std::erase(args, "--yes");
  std::erase(args, "--dry-run");
  for (std::string &arg : args)
    if (arg == "saved" || arg == "region23") arg.insert(0, testing::TempDir() + "hcxadm_habits_");
  return args;
}

Words with(Words args, const char *option) {
  args.insert(args.begin(), option);
  return args;
}

class HcxadmExamples : public testing::Test {
 protected:
  void SetUp() override {
    setenv("HCXADM_RUN_DIR", (testing::TempDir() + "hcxadm_habits_run").c_str(), 1);
    hcxadm::ticker = {[] { return passed; }, [](double seconds) { passed += seconds; }};
  }
};

TEST_F(HcxadmExamples, ABoardIsNamedByNumberHostOrPortName) {
  static constexpr const char *names[4][3] = {{"host2", "10:00:00:90:fa:94:2b:02", "0x10000090FA942B02"},
                                              {"host3", "10:00:00:90:fa:94:2b:03", "10000090fa942b03"},
                                              {"host10", "10:00:00:00:c9:a1:b2:c0", "0x10000000c9a1b2c0"},
                                              {"host11", "10:00:00:00:c9:a1:b2:c1", "10000000c9a1b2c1"}};
  size_t seen = 0;
  for (const Example &example : hcxadm::examples()) {
    Words args = words_of(example);
    const size_t at = Tried::words(example.command).size();
    if (args.size() <= at || args[at].size() != 1 || !isdigit(static_cast<unsigned char>(args[at][0])))
      continue;
    ++seen;
    const size_t number = static_cast<size_t>(args[at][0] - '0');
    args.insert(args.begin(), "--yes");
    const Played expected(args);
    for (const char *name : names[number]) {
      args[at + 1] = name;
      const Played run(args);
      EXPECT_TRUE(run == expected) << joined(args) << ": status " << run.status << "\n" << run.out << run.err;
    }
    args[at + 1] = "99";
    const Played run(args);
    EXPECT_EQ(run.status, 3) << joined(args) << run.err;
    EXPECT_NE(run.err.find("no board \"99\""), std::string::npos) << joined(args) << run.err;
  }
  EXPECT_GT(seen, 45U);
}

// Without a yes nothing is done, and nothing for --dry-run, which says what would be.
TEST_F(HcxadmExamples, WhatAsksDoesNothingWithoutAYes) {
  size_t asked = 0;
  for (const Example &example : hcxadm::examples()) {
    const Words args = words_of(example);
    if (args.empty()) continue;
    const Played unasked(args);
    if (unasked.err.find("Go on?") == std::string::npos) continue;
    ++asked;
    const Played dry(with(args, "--dry-run"));
    const std::string name = joined(args) + ": ";
    EXPECT_EQ(unasked.status, 5) << name << unasked.err;
    EXPECT_EQ(dry.status, 0) << name << dry.err;
    EXPECT_NE(dry.err.find("would "), std::string::npos) << name << dry.err;
    EXPECT_EQ(dry.err.find("Go on?"), std::string::npos) << name;
    EXPECT_EQ(dry.writes, unasked.writes) << name;
  }
  EXPECT_GT(asked, 15U);
}

TEST_F(HcxadmExamples, AMistypedWordIsAnsweredWithTheRightOne) {
  for (const Command &command : commands()) {
    Words args = command.path;
    if (args.back().size() < 3) continue;
    std::swap(args.back()[0], args.back()[1]);
    const Played run(args);
    EXPECT_EQ(run.status, 2) << joined(args);
    EXPECT_NE(run.err.find("did you mean \""), std::string::npos) << joined(args) << ": " << run.err;
  }
}

}  // namespace
