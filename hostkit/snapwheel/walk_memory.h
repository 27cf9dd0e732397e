// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Joins a walk over the source with the index of the last one and writes the next.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <vector>

#include "host/tree/tree_memory.h"
#include "snapwheel/owner_names.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

class WalkMemory final : public host::TreeMemory {
 public:
  /// `before` is the index of the reference; null when everything must be looked at.
  WalkMemory(SourceIndexWriter& writer, const SourceIndex* before);

  bool enter(const char* name, const struct stat& status) override;
  void leave() override;
  bool isUnchanged(const char* name, const struct stat& status) override;
  void took(const char* name, const struct stat& status) override;

  /// The owners of everything that the walk met.
  const OwnerIds& owners() const { return owners_; }

 private:
  bool isSettled(const struct stat& status);
  void noteOwner(const struct stat& status);

  SourceIndexWriter& writer_;
  const SourceIndex* before_;
  std::vector<SourceIndex::Folder> folders_;  ///< Of `before`, down to where the walk is.
  std::int64_t sampled_;                      ///< A time before the item at hand was looked at.
  bool settled_ = false;                      ///< What isSettled said of the item at hand.
  OwnerIds owners_;
  uid_t lastUser_;
  gid_t lastGroup_;
};

}  // namespace halyard::snapwheel
