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

}  // namespace
