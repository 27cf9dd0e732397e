// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the two preference files said when they were last read.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/property_list.h"
#include "base/text.h"
#include "product/service_names.h"

namespace halyard {

/// Every field starts absent; a reload overwrites the fields that it reads and leaves the others.
struct PreferenceRecord {
  using Value = std::optional<PropertyValue>;

  std::array<Value, kKnownServices.size()> services;  ///< Enable values, as kKnownServices.
  std::int32_t autoBackup = 0;                        ///< 1 when automatic backups are on.
  MaybeString backupDestination;                      ///< Path of the volume that receives backups.
  Value day;                                          ///< The schedule, as stored.
  Value period;
  Value daysToRetain;
  Value time;
  Value week;

  /// The enable flag of a known service as an integer; 0 when absent.
  std::int32_t serviceFlag(std::size_t index) const;
  /// Whether at least one of the seven entries is present, whatever its value.
  bool hasAnyService() const;
};

}  // namespace halyard
