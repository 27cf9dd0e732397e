// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Joins a walk over the source with the index of the last one and writes the next.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/tree/tree_memory.h"
#include "snapwheel/damage.h"
#include "snapwheel/digest.h"
#include "snapwheel/owner_names.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

/// What a walk builds upon.
struct EarlierWalk {
  /// The index of the reference; null when everything must be looked at.
  const SourceIndex* index = nullptr;
  DamageRecord damaged;  ///< Of the reference.
};

class WalkMemory final : public Digesting<host::TreeMemory> {
 public:
  /// `began` is a time after which the source's file system was written back: what
  /// was written through a mapping before that has set the change time, and so will what is written
  /// from then on. `tore` is told of each item that changed whenever it was read.
  WalkMemory(SourceIndexWriter& writer, EarlierWalk before, const struct timespec& began,
             std::function<void(const std::string& path)> tore);

  bool enter(const char* name, const struct stat& status) override;
  void leave() override;
  bool isUnchanged(const char* name, const struct stat& status) override;
  Earlier earlier(const char* name, const struct stat& status) override;
  std::optional<Moved> movedFrom(const struct stat& status) override;
  bool wantsFlags() override { return !areFlagsCarried_; }
  void sawFlags(host::InodeFlags flags) override;
  host::ContentDigest digest() override { return digest_; }
  void took(const char* name, const struct stat& status) override;
  void tookTorn(const char* name, const struct stat& status) override;

  /// The owners of everything that the walk met.
  const OwnerIds& owners() const { return owners_; }

 private:
  bool isDamaged(const char* name) const;
  std::string pathOf(const char* name) const;
  bool isMark(std::string_view name) const;
  void carryFlags(const IndexEntry* unchanged);
  void noteOwner(const struct stat& status);

  SourceIndexWriter& writer_;
  EarlierWalk before_;
  struct timespec began_;
  std::function<void(const std::string& path)> tore_;
  std::vector<SourceIndex::Folder> folders_;  ///< Of the reference, down to where the walk is.
  std::vector<std::string> path_;             ///< Names of the folders below the root.
  std::optional<SourceIndex::Place> moved_;
  bool isAtFolder_ = false;       ///< What was asked about last is a folder.
  bool areFlagsCarried_ = false;  ///< Its flags are those of the index, or it can have none.
  KnownFlags flags_;              ///< Of the file at hand.
  OwnerIds owners_;
  uid_t lastUser_;
  gid_t lastGroup_;
};

}  // namespace halyard::snapwheel
