// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether a backup of the services is at work on this host.
#pragma once

#include <optional>
#include <string>

namespace halyard::hostkit {

/// Whether a helmsman that backs up holds the lock of this host; asking takes nothing.
bool isHeldByBackup();

/// What backs the services up now, other than the process that started this one: "helmsman backup
/// (process 4711)", or a Halyard of its own. Absent when nothing does.
std::optional<std::string> backupBeside();

}  // namespace halyard::hostkit
