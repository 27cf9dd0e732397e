// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a restore did to the host, by comparing it before and after.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "helmsman/run/restore_record.h"

namespace halyard::hostkit {

/// A path as it was before a restore.
struct PathBefore {
  std::string path;
  ItemIdentity live;
  ItemIdentity aside;  ///< Of its ".previous".
};

std::vector<PathBefore> lookBefore(const std::vector<std::string>& paths);

/// What plug-ins wrote into the journal that kJournalVariable names, a line each: "service SERVICE"
/// (what follows is of this one), "aside PATH" (replaced, the old one beside as PATH.previous),
/// "made PATH", "problem TEXT", "done SERVICE".
struct PlugInJournal {
  std::vector<std::string> aside;
  std::vector<std::string> made;
  std::vector<std::string> problems;
  std::vector<std::string> done;  ///< The services whose restore programs say that they worked.

  bool saysDone(const std::string& service) const;
};

/// What is known of a restore program that does not say so: Halyard drops its status.
inline constexpr char kNotDone[] =
    "its restore program did not say that it worked: whether it did is unknown; see its log";

inline constexpr char kJournalVariable[] = "HALYARD_RESTORE_JOURNAL";

PlugInJournal parseJournal(std::string_view text);

/// The lines of a journal by the service that they are of: the one that "done" ends, else the one
/// that "service" began. Under "" those of a program that named its service in neither way.
std::map<std::string, std::string> journalsOf(std::string_view text);

/// Fills items and lost of the record: what was set aside by Halyard or by the plug-in, what was
/// made, and what was changed after `started` with nothing kept. An item that nobody touched is in
/// neither.
void traceRestore(const std::vector<PathBefore>& before, const PlugInJournal& journal,
                  const std::timespec& started, RestoreRecord& record);

}  // namespace halyard::hostkit
