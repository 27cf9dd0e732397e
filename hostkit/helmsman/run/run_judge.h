// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Judges a backup run by what Halyard printed and left behind: its exit status does not tell.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "helmsman/run/run_record.h"
#include "helmsman/settings/services.h"

namespace halyard::hostkit {

/// Takes the lines of one run of "-cmd backup" as they come. Pure: it touches no file.
///
/// What a run does not tell stays unknown to it: the status of pre-backup commands is nowhere, and
/// the error lines that name them repeat the status of the service before, so they are passed over.
class RunJudge {
 public:
  /// What a failed copy means: absent when the file is not on this host and nothing is lost by it,
  /// else a sentence about the problem.
  using CopyFailure = std::function<std::optional<std::string>(const std::string& service,
                                                               const std::string& file)>;

  /// `expected`: the descriptors that the run was to process, in order.
  explicit RunJudge(std::vector<InstalledDescriptor> expected);

  void outputLine(std::string_view line);
  void errorLine(std::string_view line);
  /// A record of the progress log as it stands at the end of the run: the line without its date.
  void progressLine(std::string_view line);

  /// Whether the progress log ends the run.
  bool sawEnd() const { return sawEnd_; }
  /// In the order of the descriptors.
  std::vector<ServiceResult> results(const CopyFailure& copyFailure) const;

 private:
  struct Entry {
    InstalledDescriptor descriptor;
    std::vector<std::string> failedCopies;
    std::vector<std::string> problems;
    bool reached = false;
    bool ended = false;
  };
  static void judgeCopies(const Entry& entry, const CopyFailure& copyFailure,
                          ServiceResult& result);
  static void noteFailedCopy(Entry& entry, std::string_view line);

  std::vector<Entry> entries_;
  Entry* current_ = nullptr;
  bool sawEnd_ = false;
};

/// The pieces of a progress line: the service is empty for a run-wide step.
struct ProgressStep {
  std::string service;
  std::string message;
  bool isError = false;
};

/// Absent for a line that is no record (the date lines among them).
std::optional<ProgressStep> parseProgressLine(std::string_view line);

}  // namespace halyard::hostkit
