// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether this host was brought back from a snapshot and still waits for its services.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace halyard::hostkit {

/// What the "/.Halyards" that stands now is.
struct HandOver {
  enum class Kind {
    none,         ///< There is no such folder.
    interrupted,  ///< It carries no signature: the backup run did not come to its end.
    own,          ///< An ordinary backup left it: it is of the volume that is booted.
    unknown,      ///< The identifier of one of the two volumes is missing.
    recovered,    ///< It came with a snapshot: it is of another volume.
  };
  Kind kind = Kind::none;
  std::string recorded;  ///< The volume that was backed up.
  std::string booted;    ///< The volume at "/".

  /// The next backup would destroy what the recovery needs.
  bool waitsForRecovery() const { return kind == Kind::recovered; }
};

/// Compares the two volumes exactly as Halyard does before a whole-system restore, with drivectl.
HandOver handOver();

/// When the backup in "/.Halyards" was signed, in seconds since 1970, or later when the folder was
/// copied without its times; 0 when that is not known. On a host that waits for its recovery what
/// was kept before is of the lost host's life.
std::int64_t handOverTime();

/// A sentence about it, for messages.
std::string describe(const HandOver& handOver);

/// Why a backup is refused while the host waits for its recovery, and the next step.
std::string refusalOfBackup(const HandOver& handOver);
/// Whether a problem of a run's record is that refusal.
bool isRefusalOfBackup(std::string_view problem);

}  // namespace halyard::hostkit
