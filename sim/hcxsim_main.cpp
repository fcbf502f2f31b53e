// SPDX-License-Identifier: BSD-3-Clause
// hcxsim: runs a command whose libhcx.so.4 looks at a simulated machine, or looks at that machine itself. The state
// folder holds the scenario and everything that changed since; commands run one after the other or at the same time
// on one folder share it.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sim_machine.h"
#include "sim_scenario.h"

// The tool drives the machine by itself; there is no library in it to put it behind.
extern "C" void LIBHCX_private_set_machine(hcx::sysio::Machine *) {}

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int kUsage = 2, kFailed = 125, kCannotRun = 127;

struct Options {
  std::string scenario, state;
  int hosts = 0, targets = -1, luns = -1;
  bool fresh = false;
  std::string path, text;
};

class Formatter : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App *app, std::string name) const override {
    if (app->get_parent() != nullptr) return CLI::Formatter::make_usage(app, name);
    return "Usage: hcxsim [OPTIONS] -- COMMAND [ARGS...]\n       hcxsim [OPTIONS] ls|cat|write PATH [TEXT]\n"
           "       hcxsim [OPTIONS] event --host N KIND [ARGS...]\n";
  }
};

// A folder made for one run, removed with all it holds.
class Folder {
 public:
  explicit Folder(const std::string &wanted) : path_(wanted) {
    if (!wanted.empty()) {
      fs::create_directories(wanted);
      path_ = fs::absolute(wanted).string();
      return;
    }
    std::string made = (fs::temp_directory_path() / "hcxsim-XXXXXX").string();
    if (::mkdtemp(made.data()) == nullptr) throw std::runtime_error("cannot make " + made);
    path_ = made;
    temporary_ = true;
  }
  ~Folder() {
    std::error_code ignored;
    if (temporary_) fs::remove_all(path_, ignored);
  }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;
  [[nodiscard]] const std::string &path() const { return path_; }

 private:
  std::string path_;
  bool temporary_ = false;
};

json wanted_scenario(const Options &options) {
  if (!options.scenario.empty()) {
    std::ifstream in(options.scenario);
    if (!in) throw std::runtime_error("cannot read " + options.scenario + ": " + std::strerror(errno));
    try {
      return json::parse(in, nullptr, true, true);
    } catch (const json::parse_error &error) {
      throw std::runtime_error(options.scenario + ": " + error.what());
    }
  }
  if (options.hosts > 0) {
    return {{"scale",
             {{"hosts", options.hosts},
              {"targets", std::max(0, options.targets)},
              {"luns", std::max(0, options.luns)}}}};
  }
  return {{"default_san", true}};
}

// A folder keeps the scenario it was made with: state of one machine means nothing to another.
void prepare(const Options &options, const std::string &folder) {
  const std::string file = folder + "/scenario.json";
  const bool asked = !options.scenario.empty() || options.hosts > 0;
  if (options.fresh) {
    for (const char *part : {"scenario.json", "state.json", "state.lock", "locks", "root", "syslog"}) {
      fs::remove_all(fs::path(folder) / part);
    }
  }
  if (fs::exists(file) && !asked) return;
  const json scenario = wanted_scenario(options);
  if (fs::exists(file)) {
    std::ifstream in(file);
    if (json::parse(in, nullptr, false) == scenario) return;
    throw std::runtime_error(folder + " holds another scenario; --fresh starts it again");
  }
  if (!options.scenario.empty()) {
    sim::Machine trial;  // a scenario with a mistake in it is refused before anything is run
    sim::load_scenario(trial, scenario);
  }
  const std::string fresh = file + "." + std::to_string(::getpid());
  std::ofstream out(fresh);
  out << scenario.dump(1) << '\n';
  if (!out.flush()) throw std::runtime_error("cannot write " + fresh);
  out.close();
  fs::rename(fresh, file);
}

std::string find_shim() {
  if (const char *set = std::getenv("HCXSIM_SHIM")) return set;
  const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
  for (const fs::path &candidate : {here / "libhcxsim.so", here / HCXSIM_SHIM_FROM_BIN}) {
    if (fs::exists(candidate)) return fs::weakly_canonical(candidate).string();
  }
  throw std::runtime_error("cannot find libhcxsim.so beside " + here.string());
}

void set_environment(const std::string &folder, const std::string &shim) {
  const char *before = std::getenv("LD_PRELOAD");
  const std::string preload = before != nullptr && *before != '\0' ? shim + ":" + before : shim;
  ::setenv("LD_PRELOAD", preload.c_str(), 1);
  ::setenv("HCXSIM_STATE", folder.c_str(), 1);
  ::setenv("HCXADM_RUN_DIR", (fs::path(folder) / "run").c_str(), 1);  // what hcxadm notes is of this machine
  // The sanitizers' runtime does not come first in a command that was built without them.
  const char *asan = std::getenv("ASAN_OPTIONS");
  const std::string options = std::string(asan != nullptr ? asan : "") + ":verify_asan_link_order=0";
  ::setenv("ASAN_OPTIONS", options.c_str(), 1);
}

int run(const std::vector<std::string> &command, const std::string &folder) {
  const std::string shim = find_shim();
  std::vector<char *> args;
  args.reserve(command.size() + 1);
  for (const std::string &word : command)
    args.push_back(const_cast<char *>(word.c_str()));
  args.push_back(nullptr);
  // As a shell: the command decides what an interrupt from the terminal means.
  struct sigaction ignore = {}, interrupt = {}, quit = {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGINT, &ignore, &interrupt);
  ::sigaction(SIGQUIT, &ignore, &quit);
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error(std::string("cannot fork: ") + std::strerror(errno));
  if (child == 0) {
    ::sigaction(SIGINT, &interrupt, nullptr);
    ::sigaction(SIGQUIT, &quit, nullptr);
    set_environment(folder, shim);
    ::execvp(args[0], args.data());
    std::cerr << "hcxsim: cannot run " << command[0] << ": " << std::strerror(errno) << '\n';
    ::_exit(kCannotRun);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error(std::string("cannot wait: ") + std::strerror(errno));
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int refused(const std::string &path, int64_t error) {
  std::cerr << "hcxsim: " << path << ": " << std::strerror(static_cast<int>(-error)) << '\n';
  return 1;
}

int list(sim::Machine &machine, const std::string &path) {
  std::vector<std::string> names;
  if (const int rc = machine.list(path.c_str(), "", names); rc < 0) return refused(path, rc);
  std::sort(names.begin(), names.end());
  for (const std::string &name : names) {
    char target[4096];
    std::string whole = path;
    whole.append("/").append(name);
    const ssize_t length = machine.read_link(whole.c_str(), target, sizeof target);
    std::cout << name;
    if (length >= 0) std::cout << " -> " << std::string(target, static_cast<size_t>(length));
    std::cout << '\n';
  }
  return 0;
}

int show(sim::Machine &machine, const std::string &path) {
  const int fd = machine.open(path.c_str(), O_RDONLY, 0);
  if (fd < 0) return refused(path, fd);
  char buf[4096];
  ssize_t got = 0;
  while ((got = machine.read(fd, buf, sizeof buf)) > 0)
    std::cout.write(buf, got);
  machine.close(fd);
  return got < 0 ? refused(path, got) : 0;
}

int store(sim::Machine &machine, const std::string &path, const std::string &text) {
  const int fd = machine.open(path.c_str(), O_WRONLY, 0);
  if (fd < 0) return refused(path, fd);
  const std::string line = text + "\n";
  const ssize_t put = machine.write(fd, line.data(), line.size());
  machine.close(fd);
  return put < 0 ? refused(path, put) : 0;
}

// A mistake in what should happen.
struct Usage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Happening {
  int host = -1;
  unsigned count = 1;
  std::vector<std::string> words;
  std::string script;
};

uint32_t number_of(const std::string &word) {
  size_t end = 0;
  unsigned long value = 0;
  try {
    value = std::stoul(word, &end, 0);
  } catch (const std::exception &) {
    end = 0;
  }
  if (end == 0 || end != word.size() || value > UINT32_MAX) throw Usage("\"" + word + "\" is no number");
  return static_cast<uint32_t>(value);
}

std::string bytes_of(const std::string &digits) {
  if (digits.size() % 2 != 0) throw Usage("\"" + digits + "\" has half a byte");
  std::string bytes;
  for (size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(number_of("0x" + digits.substr(i, 2)));
  return bytes;
}

// Makes something happen to an adapter once.
void happen(sim::Machine &machine, sim::Host &host, const std::vector<std::string> &words) {
  const std::string &kind = words.front();
  sim::Events &events = machine.events();
  auto arguments = [&](size_t least, size_t most) {
    if (words.size() - 1 < least || words.size() - 1 > most) {
      throw Usage("event " + kind + " does not take " + std::to_string(words.size() - 1) + " arguments");
    }
  };
  if (kind == "link-down" || kind == "link-up") {
    arguments(0, 0);
    kind == "link-up" ? events.link_up(host) : events.link_down(host);
  } else if (kind == "rscn") {
    arguments(1, 255);
    std::vector<uint32_t> pages;
    for (size_t i = 1; i < words.size(); i++)
      pages.push_back(number_of(words[i]));
    events.rscn(host, pages);
  } else if (kind == "dump") {
    arguments(0, 0);
    events.dump(host);
  } else if (kind == "temperature") {
    arguments(2, 2);
    events.temperature(host, number_of(words[1]), number_of(words[2]));
  } else if (kind == "ct") {
    arguments(2, 2);
    events.ct(host, number_of(words[1]), bytes_of(words[2]));
  } else if (kind == "diag") {
    try {
      events.diagnostic(host, {words.begin() + 1, words.end()});
    } catch (const std::runtime_error &error) {
      throw Usage(error.what());
    }
  } else if (kind == "raw") {
    arguments(1, 2);
    events.post(host, number_of(words[1]), words.size() > 2 ? bytes_of(words[2]) : "");
  } else {
    throw Usage("no event \"" + kind + "\": link-down, link-up, rscn, dump, temperature, ct, diag, raw");
  }
}

void happen(sim::Machine &machine, int number, const std::vector<std::string> &words) {
  sim::Host *host = machine.host(number);
  if (host == nullptr) throw Usage("there is no host" + std::to_string(number));
  happen(machine, *host, words);
}

// A line of a script: "wait MILLISECONDS", or a host and what happens to it.
void play_line(sim::Machine &machine, std::vector<std::string> words) {
  if (words.front() == "wait") {
    if (words.size() != 2) throw Usage("wait takes the milliseconds");
    std::this_thread::sleep_for(std::chrono::milliseconds(number_of(words[1])));
    return;
  }
  std::string host = words.front();
  if (host.starts_with("host")) host.erase(0, 4);
  words.erase(words.begin());
  if (words.empty()) throw Usage("nothing happens to host" + host);
  happen(machine, static_cast<int>(number_of(host)), words);
}

void play(sim::Machine &machine, const std::string &path) {
  std::ifstream file(path);
  if (!file) throw Usage("cannot read " + path);
  std::string line;
  for (int number = 1; std::getline(file, line); number++) {
    std::istringstream stream(line.substr(0, line.find('#')));
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    if (words.empty()) continue;
    try {
      play_line(machine, words);
    } catch (const Usage &error) {
      throw Usage(path + ":" + std::to_string(number) + ": " + error.what());
    }
  }
}

int make_happen(sim::Machine &machine, const Happening &what) {
  for (unsigned i = 0; i < what.count; i++) {
    if (what.script.empty()) {
      happen(machine, what.host, what.words);
    } else {
      play(machine, what.script);
    }
  }
  return 0;
}

CLI::App *add_event(CLI::App &app, Happening &happening) {
  auto *event = app.add_subcommand("event", "Make something happen to an adapter, for who listens now");
  auto *script =
      event->add_option("--script", happening.script,
                        "Instead of one: lines of a host and what happens to it, or of \"wait MS\"");
  auto *host = event->add_option("--host", happening.host, "Kernel host number")->excludes(script);
  event->add_option("--count", happening.count, "So many times")->check(CLI::PositiveNumber);
  event
      ->add_option("KIND", happening.words,
                   "link-down, link-up, rscn PAGE..., dump, temperature CODE CELSIUS, ct GSTYPE HEX, "
                   "diag WHAT [WWPN [...]], raw CODE [HEX]")
      ->needs(host);
  event->callback([&happening] {
    if (happening.script.empty() && happening.words.empty())
      throw CLI::ValidationError("event", "give --host N and what happens, or --script FILE");
  });
  return event;
}

int main_with(int argc, char **argv) {
  // What stands behind "--" is the command's own, options included.
  char **split =
      std::find_if(argv + 1, argv + argc, [](const char *word) { return std::strcmp(word, "--") == 0; });
  const bool has_command = split != argv + argc;
  const std::vector<std::string> command(has_command ? split + 1 : argv + argc, argv + argc);

  Options options;
  CLI::App app{"Runs a command on a simulated machine with FC and FCoE adapters."};
  app.name("hcxsim");
  app.formatter(std::make_shared<Formatter>());
  app.footer(
      "Without a scenario: two dual-port cards, six targets, some forty LUNs.\n"
      "Exit status: the command's; 2 usage, 125 hcxsim itself failed, 127 the command cannot be run.\n"
      "See docs/hcxsim.md for scenario files.");
  auto *scenario =
      app.add_option("--scenario", options.scenario, "Scenario file (JSON)")->check(CLI::ExistingFile);
  auto *hosts =
      app.add_option("--hosts", options.hosts, "A SAN of so many boards instead of the standard one")
          ->check(CLI::Range(1, 1024))
          ->excludes(scenario);
  app.add_option("--targets", options.targets, "Targets behind each board (with --hosts)")
      ->check(CLI::Range(0, 4096))
      ->needs(hosts);
  app.add_option("--luns", options.luns, "LUNs behind each target (with --hosts)")
      ->check(CLI::Range(0, 65536))
      ->needs(hosts);
  app.add_option(
      "--state", options.state,
      "Folder that keeps the machine's state; if not given, that of the machine that hcxsim is started "
      "on, or a temporary one");
  app.add_flag("--fresh", options.fresh, "Forget the state that the folder holds");
  auto *ls = app.add_subcommand("ls", "List a directory of the simulated machine");
  auto *cat = app.add_subcommand("cat", "Print a file of the simulated machine");
  auto *write = app.add_subcommand("write", "Write a line to a file of the simulated machine");
  for (CLI::App *action : {ls, cat, write}) {
    action->add_option("PATH", options.path, "Absolute path, for example /sys/class/fc_host")->required();
  }
  write->add_option("TEXT", options.text, "The line")->required();
  Happening happening;
  auto *event = add_event(app, happening);
  app.require_subcommand(0, 1);
  app.set_version_flag("--version", "hcxsim " HCXSIM_VERSION);
  try {
    app.parse(static_cast<int>(split - argv), argv);
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  const bool acts = !app.get_subcommands().empty();
  if (acts == has_command || (has_command && command.empty())) {
    std::cerr
        << "hcxsim: give a command behind \"--\", or one of ls, cat, write and event (--help tells more)\n";
    return kUsage;
  }
  // In a shell on a simulated machine it is that machine which one looks at and to which things happen.
  const char *around = std::getenv("HCXSIM_STATE");
  if (acts && options.state.empty() && options.scenario.empty() && hosts->count() == 0 && around)
    options.state = around;
  const Folder folder(options.state);
  prepare(options, folder.path());
  if (has_command) return run(command, folder.path());
  sim::Machine machine;
  sim::open_folder(machine, folder.path());
  if (event->parsed()) return make_happen(machine, happening);
  if (ls->parsed()) return list(machine, options.path);
  if (cat->parsed()) return show(machine, options.path);
  return store(machine, options.path, options.text);
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return main_with(argc, argv);
  } catch (const Usage &error) {
    std::cerr << "hcxsim: " << error.what() << '\n';
    return kUsage;
  } catch (const std::exception &error) {
    std::cerr << "hcxsim: " << error.what() << '\n';
    return kFailed;
  }
}
