// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Results in the system journal, with fields that a search can name.
#pragma once

#include <string>

#include "helmsman/run/run_record.h"

namespace halyard::hostkit {

struct JournalEntry {
  std::string command;   ///< HALYARD_COMMAND=, the subcommand of helmsman.
  std::string service;   ///< HALYARD_SERVICE=; empty, and no field, for a run as a whole.
  std::string snapshot;  ///< HALYARD_SNAPSHOT=, a path; empty, and no field, without one.
  std::string result;    ///< HALYARD_RESULT=: "good", "partial", "failed", or kAbsentWord.
};

/// Writes the entry; on a host without a journal nothing happens.
void writeJournal(const JournalEntry& entry);

/// An entry for each service of a backup, and one for the run.
void journalBackup(const RunRecord& record);

}  // namespace halyard::hostkit
