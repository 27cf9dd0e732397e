// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether what is restored is what was put into the snapshot, while it is copied.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "host/tree/tree_memory.h"
#include "snapwheel/digest.h"
#include "snapwheel/restore_selection.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

class RestoreProof final : public Digesting<host::TreeMemory> {
 public:
  /// `tell` is told of each item that is damaged or missing, by its path relative to the root.
  using Tell = std::function<void(const std::string& path, const char* what)>;
  RestoreProof(const SourceIndex& index, const Selection& selection, Tell tell)
      : index_(index), selection_(selection), tell_(std::move(tell)) {}

  bool enter(const char* name, const struct stat& status) override;
  void leave() override;
  bool isUnchanged(const char* name, const struct stat& status) override;
  Earlier earlier(const char*, const struct stat&) override { return {}; }
  std::optional<Moved> movedFrom(const struct stat&) override { return std::nullopt; }
  host::InodeFlags flagsOfContents(const char* name) override;
  host::ContentDigest digest() override { return digest_; }
  void took(const char* name, const struct stat& status) override;
  void tookTorn(const char* name, const struct stat& status) override { took(name, status); }

 private:
  struct Level {
    SourceIndex::Folder folder;
    std::vector<bool> seen;  ///< Which of its entries the walk met.
    std::string path;        ///< With a "/" at its end; empty for the root.
  };
  const IndexEntry* meet(const char* name);

  bool isProven(const IndexEntry& entry) const;

  const SourceIndex& index_;
  const Selection& selection_;
  Tell tell_;
  std::vector<Level> levels_;
};

}  // namespace halyard::snapwheel
