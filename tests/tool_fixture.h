// SPDX-License-Identifier: BSD-3-Clause
// The command-line tool as a user meets it: command lines run in process; the exit status, standard output and error.
#pragma once

#include <gtest/gtest.h>

#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "hcxadm.h"

class Tool {
 protected:
  std::string out, err;
  hcxadm::Terminal terminal;

  virtual ~Tool() = default;
  virtual void before_run() {}

  static std::vector<std::string> words(const std::string &line) {
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
  }
  int run_words(const std::vector<std::string> &args, const std::string &answers = "") {
    std::istringstream in(answers);
    std::ostringstream out_stream, err_stream;
    before_run();
    const int status = hcxadm::run(args, in, out_stream, err_stream, terminal);
    out = out_stream.str();
    err = err_stream.str();
    return status;
  }
  int run(const std::string &line, const std::string &answers = "") {
    return run_words(words(line), answers);
  }
  int yes(const std::string &line) { return run(line + " --yes"); }
  // Rows of the JSON document, without questions.
  nlohmann::json data(const std::string &line, int status = 0) {
    EXPECT_EQ(yes("-o json " + line), status) << line << ": " << err;
    return nlohmann::json::parse(out)["data"];
  }
  // The only one.
  nlohmann::json row(const std::string &line, int status = 0) {
    const nlohmann::json rows = data(line, status);
    EXPECT_EQ(rows.size(), 1U) << out;
    return rows.empty() ? nlohmann::json::object() : rows[0];
  }
  bool says(const std::string &text) const { return err.find(text) != std::string::npos; }
  bool shows(const std::string &text) const { return out.find(text) != std::string::npos; }

  // Command lines with their exit status and a part of what is said.
  struct Ending {
    const char *line;
    int status;
    const char *text;
  };
  void expect_endings(std::initializer_list<Ending> endings) {
    for (const Ending &e : endings) {
      EXPECT_EQ(run(e.line), e.status) << e.line << ": " << err;
      EXPECT_TRUE(says(e.text)) << e.line << ": " << err;
    }
  }
};
