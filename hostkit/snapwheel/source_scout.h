// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Looks at the source, in a thread of its own, before the walk that copies it comes there.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/files/descriptor.h"
#include "host/files/location.h"
#include "host/tree/quiet_opener.h"
#include "host/tree/tree_scout.h"
#include "host/tree/walk_tree.h"
#include "snapwheel/source_index.h"

namespace halyard::snapwheel {

/// Where a scout goes. Everything in it outlives the scout, is only read, and `excluded` is called
/// in the thread.
struct ScoutRoute {
  const host::Location& source;
  std::string reference;  ///< As in TreeCopyOptions.
  std::function<bool(std::string_view relativePath)> excluded;
  const SourceIndex* before = nullptr;  ///< Of the reference; null for none.
};

/// Takes the same way as the walk and stays a bounded number of items and bytes ahead. It asks for
/// the status of each item, and while that has to be read from the disk has the contents read too
/// that the walk will copy. It opens nothing for writing and decides nothing: what it did not see,
/// or not at the same place, the walk looks at itself. Without a thread it has seen nothing.
class SourceScout final : public host::TreeScout {
 public:
  explicit SourceScout(ScoutRoute route);
  ~SourceScout() override;
  SourceScout(const SourceScout&) = delete;
  SourceScout& operator=(const SourceScout&) = delete;

  const Item* find(std::string_view folder, const char* name, ino_t inode) override;

 private:
  struct Seen {
    Item item;
    std::size_t name;  ///< Where in the batch's names it starts.
  };
  /// Items of one folder.
  struct Batch {
    std::string folder;
    std::vector<Seen> items;
    std::string names;        ///< Each ended by a NUL.
    std::uint64_t bytes = 0;  ///< Of contents that are being read.

    /// The number of items where it is not among them.
    std::size_t placeOf(const char* name, ino_t inode, std::size_t first) const;
  };

  // Of the thread.
  void run() noexcept;
  host::WalkStep visit(const host::WalkedItem& item);
  void enter(std::string_view folder);
  void look(const host::WalkedItem& item);
  bool willBeRead(const struct stat& status) const;
  void readAhead(const host::WalkedItem& item);
  void lookAtEarlier(ino_t inode) const;
  void handOver();
  void noteReading();

  // Of the walk.
  bool fetch(std::string_view folder);
  void skipTo(const char* name, ino_t inode);
  void stop();

  bool isFull() const { return queuedItems_ >= kMostItems || queuedBytes_ >= kMostBytes; }
  bool isHalfEmpty() const {
    return queuedItems_ <= kMostItems / 2 && queuedBytes_ <= kMostBytes / 2;
  }
  Batch takeFirst();
  void forgetPassed();

  static constexpr std::size_t kMostItems = 4096;
  static constexpr std::uint64_t kMostBytes = std::uint64_t{32} << 20;

  const ScoutRoute route_;
  host::QuietOpener opener_;
  host::Descriptor referenceRoot_;
  host::Descriptor referenceFolder_;
  Batch filling_;
  std::int64_t blocksRead_ = 0;  ///< By the thread up to now.
  int coldBatches_ = 0;          ///< For how many more the disk is taken to be read.

  Batch batch_;           ///< What the walk is at.
  std::size_t at_ = 0;    ///< In its items.
  std::string folder_;    ///< That the walk is in.
  bool isAlone_ = false;  ///< The thread has seen nothing more of that folder.
  int misses_ = 0;        ///< In a row.

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::condition_variable drained_;
  std::deque<Batch> queue_;
  std::size_t queuedItems_ = 0;
  std::uint64_t queuedBytes_ = 0;
  bool hasEnded_ = false;
  std::atomic<bool> stops_ = false;
  std::thread thread_;
};

}  // namespace halyard::snapwheel
