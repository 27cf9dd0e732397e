// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Looks a host's part of a repository over.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "snapwheel/repository.h"
#include "snapwheel/verify_contents.h"

namespace halyard::snapwheel {

enum class Severity { note, problem };

struct Finding {
  Severity severity = Severity::problem;
  std::string path;
  std::string text;  ///< What is wrong and what to do.
};

struct CheckReport {
  std::vector<Finding> findings;
  std::uint64_t snapshots = 0;
  std::uint64_t items = 0;           ///< Met in the snapshots that were read.
  std::uint64_t bytesRead = 0;       ///< Of file contents.
  std::vector<DamagedFile> damaged;  ///< Each is in the findings, too.
};

/// How much of the snapshots is read.
enum class CheckDepth {
  structure,  ///< Names, records, links.
  metadata,   ///< Every folder is listed and every item looked at.
  contents,   ///< Every file is read, too, and must hold what was put there.
};

/// `part` is what is read of the contents. Damaged files are kept in mind as verifyContents does
/// it.
CheckReport checkRepository(const Repository& repository, CheckDepth depth,
                            const VerifyPart& part = {});

}  // namespace halyard::snapwheel
