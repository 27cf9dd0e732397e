// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/journal.h"

// The entry is of no line of this source.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>

#include <vector>

namespace halyard::hostkit {

namespace {

int priorityOf(const std::string& result) {
  if (result == resultWord(RunRecord::Result::good) || result == kAbsentWord) return LOG_INFO;
  return result == resultWord(RunRecord::Result::partial) ? LOG_WARNING : LOG_ERR;
}

std::string messageOf(const JournalEntry& entry) {
  std::string text = entry.command;
  if (!entry.service.empty()) text += " of " + entry.service;
  return text + ": " + entry.result;
}

}  // namespace

void writeJournal(const JournalEntry& entry) {
  std::vector<std::string> fields = {
      "MESSAGE=" + messageOf(entry), "PRIORITY=" + std::to_string(priorityOf(entry.result)),
      "SYSLOG_IDENTIFIER=helmsman", "HALYARD_COMMAND=" + entry.command,
      "HALYARD_RESULT=" + entry.result};
  if (!entry.service.empty()) fields.push_back("HALYARD_SERVICE=" + entry.service);
  if (!entry.snapshot.empty()) fields.push_back("HALYARD_SNAPSHOT=" + entry.snapshot);
  std::vector<iovec> pieces;
  pieces.reserve(fields.size());
  for (std::string& field : fields) pieces.push_back({field.data(), field.size()});
  // The result stands in the record and in the exit status; the journal is one place more.
  (void)::sd_journal_sendv(pieces.data(), static_cast<int>(pieces.size()));
}

void journalBackup(const RunRecord& record) {
  const auto entry = [&record](const std::string& service, const char* result) {
    return JournalEntry{"backup", service, record.snapshot, result};
  };
  for (const ServiceResult& service : record.services) {
    writeJournal(entry(service.name, resultWord(service)));
  }
  writeJournal(entry("", resultWord(record.result)));
}

}  // namespace halyard::hostkit
