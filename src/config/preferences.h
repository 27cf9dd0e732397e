// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The backup preferences: which services take part, and where backups go.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/text.h"
#include "frontend/run/preference_record.h"

namespace halyard {

/// Loads both preference files into the run state's record, repairing them first when missing.
///
/// Reads:  the two preference files; a missing or unreadable one leaves its fields as they were.
/// Runs:   the administration tool with "settings" "backup" when either file is missing.
/// Prints: the two repair messages, on one line, when it ran.
/// Returns: that record.
const PreferenceRecord& get_Helmsman_Prefs();

/// Returns: 1 when at least one of the seven service entries is present, whatever its value, and
///          automatic backups are on; else 0.
std::int32_t willDoBackup();

/// Returns: 1 when the name is a key of the "services" dictionary, exactly; else 0.
/// Prints:  in debug mode each key up to and including the match, and "FOUND" or "NOT FOUND".
std::int32_t isValidService(const MaybeString& name);

/// The prefs command, also made on every run: loads the preferences and shows them in debug mode.
void Prefs();

/// Runs the administration tool when either preference file is missing; silent.
void repairMissingPreferences();

/// Calls `visit` with each key of the "services" dictionary in file order until it answers false.
/// A missing file, or one without that dictionary, has no keys.
void forEachServiceKey(const std::function<bool(const std::string& key)>& visit);

/// Whether the name is a key of "services"; prints the matching key in debug mode.
bool isListedService(const MaybeString& name);

}  // namespace halyard
