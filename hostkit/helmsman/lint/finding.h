// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the checks of descriptors and preferences find.
#pragma once

#include <string>
#include <vector>

namespace halyard::hostkit {

struct Finding {
  enum class Severity { warning, error };
  Severity severity = Severity::warning;
  std::string file;
  std::string key;      ///< Empty when the whole file is meant.
  std::string problem;  ///< What is wrong.
  std::string advice;   ///< What to do.
};

using Findings = std::vector<Finding>;

/// Adds findings about one file.
class FindingList {
 public:
  FindingList(std::string file, Findings& findings) : file_(std::move(file)), findings_(findings) {}
  void error(std::string key, std::string problem, std::string advice) {
    add(Finding::Severity::error, std::move(key), std::move(problem), std::move(advice));
  }
  void warning(std::string key, std::string problem, std::string advice) {
    add(Finding::Severity::warning, std::move(key), std::move(problem), std::move(advice));
  }

 private:
  void add(Finding::Severity severity, std::string key, std::string problem, std::string advice) {
    findings_.push_back({severity, file_, std::move(key), std::move(problem), std::move(advice)});
  }
  std::string file_;
  Findings& findings_;
};

}  // namespace halyard::hostkit
