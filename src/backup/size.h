// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// How much a backup of the enabled services will need, and how large the volumes are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "frontend/run/command_line.h"

namespace halyard {

/// What the measurements of a run have found so far.
struct SizeMeasurements {
  std::int64_t totalRequired = 0;     ///< Bytes, as the services report them.
  std::int64_t imagesVolumeSize = 0;  ///< Bytes: the size, not the free space, of "/".
  std::string measuredSize;           ///< 1024-byte blocks, as df wrote them; nobody reads it.
};
SizeMeasurements& sizeMeasurements();

/// Asks each enabled service for its size and adds the answers.
///
/// Reads:   the descriptors; the enable flags (a flag must be exactly 1, names fold case).
/// Runs:    each service's backup executable with "-cmd" "size" "-opt" "all".
/// Writes:  a fresh progress log.
/// Prints:  with `print`, "total := " and the total in KiB, truncated towards zero.
/// Returns: the total in bytes.
std::int64_t SizeRequired(bool print);

/// Estimates and measures for the debug lines.
/// Returns: 1. Kept: it never refuses a backup.
std::int32_t haveRoomForBackup(const CommandLine& line);

/// Measures "/" into SizeMeasurements::imagesVolumeSize; 0 when the pipeline fails.
void get_Images_Volume_Size();
/// Measures "/" into SizeMeasurements::measuredSize.
void get_Boot_Volume_Size();
/// Measures the backup destination into SizeMeasurements::measuredSize.
void get_Destination_Volume_Size();

/// Reads a service's size answer as it arrives, in any pieces: every line that begins with
/// "total := " counts with the 32-bit integer behind it. Takes no memory for the lines.
class SizeAnswer {
 public:
  enum class Keep { sum, everyValue };
  explicit SizeAnswer(Keep keep) : keep_(keep) {}

  void take(std::string_view piece);
  /// Ends a last line that has no line feed.
  void finish();

  std::int64_t sum() const { return sum_; }
  /// The values in their order; empty unless every value is kept.
  const std::vector<std::int32_t>& values() const { return values_; }

 private:
  void takePartOfLine(std::string_view part);
  void finishLine();

  Keep keep_;
  std::size_t matched_ = 0;  ///< Characters of the prefix that the line has shown so far.
  bool counts_ = true;       ///< The line can still begin with the prefix.
  IntegerReader number_;
  std::int64_t sum_ = 0;
  std::vector<std::int32_t> values_;
};

}  // namespace halyard
