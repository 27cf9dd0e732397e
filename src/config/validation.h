// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether the host, the volume on the command line and the program's own folders are fit for work.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "frontend/run/command_line.h"
#include "host/files/files.h"

namespace halyard {

/// Returns: 1. Kept: the check always passes, and its one caller does not look at the answer.
std::int32_t IsStandardServer();

/// Reads:   the option "-source", else "-target"; the booted system's version file.
/// Returns: 1 when that volume is an existing directory and the system's version number is greater
///          than 1059; else 0.
std::int32_t isValidSystem(const CommandLine& line);

/// The version text as a digit string: without its dots; "0" is appended to one of two parts.
/// Kept: 10.5.10 gives 10510 and passes, 11 gives 11 and fails.
std::string sanitizedVersion(std::string_view version);

/// Makes sure that the snapshot repository stands on the backup volume. The argument is not used.
///
/// Runs:   "/bin/mkdir" "-p" "-m" "0770" on a repository that is there already, which changes
///         nothing.
/// Writes: a missing repository folder: 0775, owner root, group admin; a failure is ignored.
void validate_FullPath(const std::string& path);

/// Starts a fresh progress log, making its folder first when nothing at all stands there.
void validate_LogPaths();

/// Makes every missing level of a folder with these attributes.
/// Returns: 1 when the whole path exists afterwards, 0 at the first level that could not be made,
///          which is reported to the system log.
std::int32_t createDirectoryLevels(const std::string& path, const host::Attributes& attributes);

}  // namespace halyard
