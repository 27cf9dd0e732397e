// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Shows a backup while it runs and what became of it.
#pragma once

#include <cstddef>
#include <set>
#include <string>

#include "helmsman/run/run_judge.h"
#include "helmsman/run/run_record.h"

namespace halyard::hostkit {

/// A bar with the service and step on a terminal, a line a step otherwise, or JSON lines.
class RunDisplay {
 public:
  enum class Form {
    automatic,  ///< The bar when standard error is a terminal, else lines.
    json,       ///< An object a line on standard output: "started", "step", "finished".
  };
  RunDisplay(Form form, bool quiet);

  void started(const std::vector<std::string>& services);
  /// A step of Halyard's run.
  void step(const ProgressStep& step);
  /// A step of the cycle around it.
  void phase(const std::string& text);
  /// Takes the bar away, so that messages stand on lines of their own.
  void clearBar();
  /// The summary: services, problems, snapshot.
  void finished(const RunRecord& record);

 private:
  void drawBar(const std::string& text);

  bool json_;
  bool bar_;
  std::size_t total_ = 0;
  std::set<std::string> sized_;
  std::set<std::string> ended_;
};

/// How far a run is, from 0 to 1: sizes are a tenth of it.
double progressFraction(std::size_t sized, std::size_t ended, std::size_t total);

/// "[#####-----]" with `width` signs between the brackets.
std::string progressBar(double fraction, std::size_t width);

/// The summary's text.
std::string summaryText(const RunRecord& record);

}  // namespace halyard::hostkit
