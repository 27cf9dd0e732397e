// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The result of a backup as it is kept for status and metrics.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace halyard::hostkit {

/// What became of one service in a backup.
struct ServiceResult {
  std::string name;
  bool done = false;                  ///< Everything the descriptor asks for is in the backup.
  std::optional<int> copied;          ///< Listed files that were copied; absent when unknown.
  std::uint64_t bytes = 0;            ///< Of its folder in the backup.
  std::vector<std::string> missing;   ///< Listed files that this host does not have.
  std::vector<std::string> problems;  ///< One sentence each.
  std::string log{};  ///< Where its backup program writes; empty when no log tells of its problems.
  bool absent = false;  ///< Nothing of it is on this host, so there was nothing to save.
};

/// Of a service that has nothing on this host.
inline constexpr char kAbsentWord[] = "not on this host";

/// "good", "failed" or kAbsentWord.
const char* resultWord(const ServiceResult& service);

/// Where to read on about a service that failed; empty for one that did not, and when no log tells.
std::string logText(const ServiceResult& service);

/// When a service, or the host as a whole, was last backed up without a problem.
struct GoodBackup {
  std::int64_t time = 0;  ///< Seconds since 1970-01-01 UTC.
  std::uint64_t bytes = 0;
  std::string snapshot{};  ///< Path of the one that holds it; records of 1.0.0 lack it.
};

/// One backup, from the call of Halyard to retention.
struct RunRecord {
  enum class Result {
    good,
    partial,
    failed,
    interrupted,  ///< It was told to stop, killed, crashed, or cut off by power.
  };

  std::int64_t started = 0;
  std::int64_t finished = 0;
  Result result = Result::failed;
  std::vector<ServiceResult> services;
  std::vector<std::string> problems;           ///< Those of no single service.
  std::string snapshot;                        ///< Path; empty when none was taken.
  std::optional<std::uint64_t> copiedBytes;    ///< By a snapshot that shares data with another.
  std::optional<std::uint64_t> estimateBytes;  ///< What the services said they need.
  /// By service, as of this record; the empty name stands for the whole host.
  std::map<std::string, GoodBackup> lastGood;
};

const char* resultWord(RunRecord::Result result);

nlohmann::json recordJson(const RunRecord& record);
/// Absent when the document is no record.
std::optional<RunRecord> recordFrom(const nlohmann::json& document);

/// The latest record of this host; absent when there is none that can be read.
std::optional<RunRecord> readLastRecord();

/// A service is good when it can be restored: none is without a snapshot.
void tellWhatNoSnapshotHolds(RunRecord& record);

/// Carries lastGood over from the record before and adds what this run made good.
void inheritGood(RunRecord& record, const std::optional<RunRecord>& before);

/// Keeps the record as the latest, and under its date with the thirty before it. False when it
/// could not be written.
bool keepRecord(const RunRecord& record);

/// The status that a backup of this result ends with.
int exitStatusOf(RunRecord::Result result);

}  // namespace halyard::hostkit
