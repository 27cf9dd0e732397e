// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The commands as the command line knows them: each prints its answer and gives an exit status.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "snapwheel/check_repository.h"
#include "snapwheel/repository.h"
#include "snapwheel/restore_snapshot.h"
#include "snapwheel/retention.h"

namespace halyard::snapwheel {

/// What the options, the configuration file and the preferences say.
struct CommandOptions {
  std::string destination;  ///< An alias record; empty for the one of the preferences.
  std::string computer;     ///< Empty for this host's name.
  std::optional<unsigned> days;
  RetentionRules rules;  ///< Without the days.
  std::string source = "/";
  std::string volume = "System";
  std::vector<std::string> furtherVolumes;  ///< Mount points of each snapshot,
  std::vector<std::string> addedVolumes;    ///< and of this one.
  std::string exclusionFile;
  std::vector<std::string> excludes;            ///< Of this call,
  std::vector<std::string> configuredExcludes;  ///< and of the configuration file.
  std::vector<std::string> names;
  RestoreRequest restore;
  CheckDepth depth = CheckDepth::structure;
  VerifyPart part;
  bool json = false;
  bool prune = false;
  bool dryRun = false;
  bool allComputers = false;
  bool force = false;  ///< Of delete: pinned ones, too.
  std::string note;
  std::string pattern;
  bool isNow = false;  ///< Compares with what the host has now.
};

/// Takes a snapshot, and prunes afterwards when it is asked to and nothing was left out.
int runSnapshot(const CommandOptions& options);
int runList(const CommandOptions& options);
int runDelete(const CommandOptions& options);
/// Makes the link "Latest" lead to the newest snapshot; removes it when there is none.
int runLatest(const CommandOptions& options);
int runPrune(const CommandOptions& options);
int runPin(const CommandOptions& options);
int runUnpin(const CommandOptions& options);
int runRestore(const CommandOptions& options);
/// Tells what differs; success whether anything does or not.
int runDiff(const CommandOptions& options);
/// Finds files in all snapshots; success whether there are any or not.
int runFind(const CommandOptions& options);
int runCheck(const CommandOptions& options);

}  // namespace halyard::snapwheel
