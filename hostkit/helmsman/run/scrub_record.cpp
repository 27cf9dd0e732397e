// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/scrub_record.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/json_file.h"
#include "common/json_members.h"
#include "common/paths.h"
#include "common/times.h"
#include "helmsman/settings/folders.h"
#include "helmsman/settings/scrub_schedule.h"
#include "host/files/files.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kRecordLimit = std::size_t{16} << 20;
constexpr mode_t kFolderMode = 0755;
constexpr std::int64_t kDay = std::int64_t{24} * 60 * 60;
constexpr std::size_t kNamedFiles = 5;
constexpr const char* kResults[] = {"good", "damage", "failed"};

std::int64_t timeOf(const nlohmann::json& document, const char* key) {
  return parseTime(textOf(document, key)).value_or(0);
}

unsigned numberOf(const nlohmann::json& document, const char* key) {
  const std::uint64_t number = countOf(document, key).value_or(0);
  return number <= kMostScrubParts ? static_cast<unsigned>(number) : 0;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

std::string damageText(const std::vector<DamagedSnapshotFile>& damaged) {
  std::string text = std::to_string(damaged.size()) + (damaged.size() == 1 ? " file" : " files") +
                     " in the snapshots cannot be relied on: ";
  for (std::size_t at = 0; at < std::min(damaged.size(), kNamedFiles); ++at) {
    text += (at == 0 ? "" : "; ") + damaged[at].path + " " + damaged[at].reason + " (in " +
            joined(damaged[at].snapshots) + ")";
  }
  const bool isAll = damaged.size() <= kNamedFiles;
  return isAll ? text : text + "; and " + std::to_string(damaged.size() - kNamedFiles) + " more";
}

void addProblems(std::int64_t now, const std::vector<Snapshot>* snapshots, ScrubHealth& health) {
  const std::optional<ScrubRecord>& record = health.record;
  if (record && !record->damaged.empty()) {
    health.problems.push_back(
        {damageText(record->damaged),
         "take them from another snapshot; the next backup copies them afresh"});
  }
  if (record && record->result != ScrubRecord::Result::good) {
    for (const std::string& text : record->problems) {
      health.problems.push_back(
          {"the last check of the repository: " + text,
           std::string("look at journalctl --unit ") + kScrubUnit + ", then run helmsman scrub"});
    }
  }
  if (health.period == ScrubPeriod::off) return;
  health.problems.insert(health.problems.end(), health.timer.faults.begin(),
                         health.timer.faults.end());
  const std::int64_t period = (health.period == ScrubPeriod::weekly ? 7 : 31) * kDay;
  const std::int64_t longest = (std::int64_t{health.parts} + 2) * period;
  auto oldest = oldestPart(record, health.parts);
  const bool isNever = !oldest;
  // What was never read is as old as the first snapshot.
  if (isNever && snapshots != nullptr && !snapshots->empty()) oldest = beginOf(snapshots->front());
  if (!oldest || now - *oldest <= longest) return;
  const std::string part = "part " + std::to_string(nextPart(record, health.parts)) + " of " +
                           std::to_string(health.parts) + " of the repository was ";
  health.problems.push_back(
      {part + (isNever ? "never read" : "last read " + ageText(now - *oldest)),
       std::string("run helmsman scrub; look why ") + kScrubTimerUnit + " does not"});
}

void forgetRemoved(const std::vector<Snapshot>& snapshots, ScrubRecord& record) {
  for (DamagedSnapshotFile& file : record.damaged) {
    std::erase_if(file.snapshots, [&](const std::string& name) {
      return std::ranges::find(snapshots, name, &Snapshot::name) == snapshots.end();
    });
  }
  std::erase_if(record.damaged,
                [](const DamagedSnapshotFile& file) { return file.snapshots.empty(); });
}

}  // namespace

std::optional<ScrubRecord> readScrubRecord() {
  const nlohmann::json document = readJsonFile(kScrubFile, kRecordLimit);
  if (!document.is_object()) return std::nullopt;
  ScrubRecord record;
  const auto result = std::ranges::find(kResults, textOf(document, "result"));
  if (result != std::end(kResults)) {
    record.result = static_cast<ScrubRecord::Result>(result - std::begin(kResults));
  }
  record.started = timeOf(document, "started");
  record.finished = timeOf(document, "finished");
  record.part = numberOf(document, "part");
  record.parts = numberOf(document, "parts");
  record.bytesRead = countOf(document, "bytesRead").value_or(0);
  record.problems = textsOf(document, "problems");
  for (const nlohmann::json& entry : memberOf(document, "partsRead")) {
    const unsigned part = numberOf(entry, "part");
    if (part != 0) record.partsRead[part] = timeOf(entry, "time");
  }
  for (const nlohmann::json& entry : memberOf(document, "damaged")) {
    record.damaged.push_back({textOf(entry, "path"), textOf(entry, "reason"),
                              textsOf(entry, "snapshots"), numberOf(entry, "part")});
  }
  return record;
}

nlohmann::json scrubJson(const ScrubRecord& record) {
  nlohmann::json document = {{"result", kResults[static_cast<std::size_t>(record.result)]},
                             {"started", timeText(record.started)},
                             {"finished", timeText(record.finished)},
                             {"part", record.part},
                             {"parts", record.parts},
                             {"bytesRead", record.bytesRead},
                             {"partsRead", nlohmann::json::array()},
                             {"damaged", nlohmann::json::array()},
                             {"problems", record.problems}};
  for (const auto& [part, time] : record.partsRead) {
    document["partsRead"].push_back({{"part", part}, {"time", timeText(time)}});
  }
  for (const DamagedSnapshotFile& file : record.damaged) {
    document["damaged"].push_back({{"path", file.path},
                                   {"reason", file.reason},
                                   {"snapshots", file.snapshots},
                                   {"part", file.part}});
  }
  return document;
}

bool keepScrubRecord(const ScrubRecord& record) {
  const std::string text =
      scrubJson(record).dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
  return makeFolders(kStateFolder, kFolderMode) &&
         host::writeFile(kScrubFile, text + "\n", host::Durability::power);
}

unsigned nextPart(const std::optional<ScrubRecord>& record, unsigned parts) {
  unsigned next = 1;
  if (!record || record->parts != parts) return next;
  std::optional<std::int64_t> oldest;
  for (unsigned part = 1; part <= parts; ++part) {
    const auto read = record->partsRead.find(part);
    if (read == record->partsRead.end()) return part;
    if (oldest && *oldest <= read->second) continue;
    oldest = read->second;
    next = part;
  }
  return next;
}

std::optional<std::int64_t> oldestPart(const std::optional<ScrubRecord>& record, unsigned parts) {
  if (!record) return std::nullopt;
  const auto read = record->partsRead.find(nextPart(record, parts));
  if (record->parts != parts || read == record->partsRead.end()) return std::nullopt;
  return read->second;
}

ScrubHealth scrubHealth(std::int64_t now, const std::vector<Snapshot>* snapshots) {
  ScrubHealth health;
  std::string ignored;  // Status tells it.
  const auto configuration = helmsmanConfiguration(ignored).value_or(HelmsmanConfiguration());
  health.period = configuration.scrub.value_or(ScrubPeriod::off);
  if (health.period != ScrubPeriod::off) {
    health.timer = timerReport(Timed::scrub, scrubCalendar(health.period));
  }
  health.parts = configuration.scrubParts;
  health.record = readScrubRecord();
  if (health.record && snapshots != nullptr) forgetRemoved(*snapshots, *health.record);
  addProblems(now, snapshots, health);
  return health;
}

std::string scrubText(const ScrubHealth& health, std::int64_t now) {
  const bool isOff = health.period == ScrubPeriod::off;
  if (isOff && !health.record) return "is never read (see: helmsman schedule --scrub)";
  const std::string schedule = scrubWord(health.period);
  if (!health.record) return "not read yet (" + schedule + ")";
  const ScrubRecord& record = *health.record;
  std::string text = "part " + std::to_string(record.part) + " of " + std::to_string(record.parts);
  text += record.result == ScrubRecord::Result::failed ? " could not be read " : " read ";
  text += ageText(now - record.finished);
  const auto oldest = oldestPart(health.record, health.parts);
  text += oldest ? ", every part since " + timeText(*oldest) : ", not every part yet";
  text += record.damaged.empty() ? ", no damage" : ", damage: see below";
  return text + " (" + schedule + ")";
}

}  // namespace halyard::hostkit
