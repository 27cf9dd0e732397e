// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The texts of a run that helmsman reads as well: the program prints them, helmsman takes them
// apart by the same constants. A text that is only for people stands at its only call.
//
// Those with a "%" are formats of printf.
#pragma once

#include <cstddef>
#include <string_view>

namespace halyard::texts {

// Standard output of a backup.
inline constexpr char kDescriptorEntry[] = "*** nextPath := %s\n";
inline constexpr char kCopyFailed[] = "Failed to copy %s to %s; ret -> %d\n";

// The platform log of a backup.
inline constexpr char kBackupCallFailed[] =
    "Error in calling backup command for service %s, error :=%d";
inline constexpr char kPostBackupCallFailed[] =
    "Error in calling post-backup command for service %s, error :=%d";

// The progress log.
inline constexpr char kProgressStart[] = "## PROGRESS :: Halyard :: ";
inline constexpr char kErrorStart[] = "## ERROR :: Halyard :: ";
inline constexpr char kSeparator[] = " :: ";  // after a service's name; in the pid file too
inline constexpr char kSizeBegun[] = "Calculating size requirements for backup...";
inline constexpr char kSizeDone[] = "Size requirements calculation for backup done.";
inline constexpr char kPreBackupBegun[] = "Calling service pre-backup items...";
inline constexpr char kPostBackupBegun[] = "Calling service post-backup items...";
inline constexpr char kServiceDone[] = "Service backup binary done.";
inline constexpr char kServiceRestored[] = "Service restore binary done.";
inline constexpr char kRunDone[] = "Done.";

// Sizes, of the program and of plug-ins.
inline constexpr char kSizeTotal[] = "total := ";

// Verification: a plug-in's summary, and the result in debug mode.
inline constexpr char kFailureSummary[] = "Number of failures to match";
inline constexpr char kVerifyResult[] = "binRet";
inline constexpr char kValueMark[] = " := ";

// Warnings on the standard output of browse.
inline constexpr char kWarning[] = "WARNING";
inline constexpr char kNoBrowseFolder[] =
    "WARNING: Service %s folder does not exist for browsing.\n";
inline constexpr char kNoBrowseData[] =
    "WARNING:2: Service %s did not return any data when browsing.\n";
inline constexpr char kNoListingData[] =
    "WARNING:3: Service %s did not return any data when browsing.\n";
inline constexpr char kUnknownToBrowse[] =
    "Service := %s, does not match a valid service for browsing!\n";

/// The fixed text of a format before its first conversion (0), between the first and the second
/// (1), and so on. Every conversion here is one letter long.
constexpr std::string_view fixedPart(std::string_view format, std::size_t index) {
  for (; index > 0; --index) format.remove_prefix(format.find('%') + 2);
  return format.substr(0, format.find('%'));
}

}  // namespace halyard::texts
