// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What restores set aside and made, as it is kept for undo, tidy, status and backup.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace halyard::hostkit {

/// ".previous", as Halyard names what it sets aside.
std::string asidePath(const std::string& path);

/// What tells an item from another one that stands at its path later.
struct ItemIdentity {
  std::uint64_t inode = 0;  ///< 0 when nothing stands there, or it is not known.
  /// When it was made, in nanoseconds since 1970; 0 when the file system does not keep it.
  /// Without it another item may have got the number of one that is gone.
  std::int64_t born = 0;

  bool isKnown() const { return inode != 0; }
  bool operator==(const ItemIdentity&) const = default;
};

/// Of what stands at a path itself.
ItemIdentity identityOf(const std::string& path);
/// The same by name in an open folder.
ItemIdentity identityAt(int folder, const std::string& name);

/// The latest restore of one service, and what is left of those before it.
struct RestoreRecord {
  std::string service;  ///< Its name, or the path of a file that was restored by itself.
  std::string snapshot;
  std::int64_t time = 0;
  bool finished = false;  ///< The host was compared afterwards; else it is only what was planned.
  bool undone = false;
  struct Item {
    std::string path;
    bool wasLive = false;  ///< Something was set aside; otherwise the restore made it.
    ItemIdentity aside;    ///< What it left at its ".previous".
  };
  std::vector<Item> items;  ///< In the order in which the restore took them.
  struct Lost {
    std::string path;
    std::string why;  ///< "was changed in place".
  };
  std::vector<Lost> lost;   ///< What undo cannot take back.
  std::vector<Item> older;  ///< What earlier restores set aside elsewhere.
};

/// Whether what a record set aside still stands there.
bool standsAside(const RestoreRecord::Item& item);
/// The same, and true when that cannot be told.
bool mayStandAside(const RestoreRecord::Item& item);

/// Whether `there` is what the item set aside; by the number alone where the record has no more.
bool isWhatWasSetAside(const RestoreRecord::Item& item, const ItemIdentity& there);

/// A sentence for people about an item whose record has no more than the number; else empty.
std::string doubtOf(const RestoreRecord::Item& item);

nlohmann::json restoreRecordJson(const RestoreRecord& record);
std::optional<RestoreRecord> restoreRecordFrom(const nlohmann::json& document);

/// One record a service, or a path, is kept.
std::optional<RestoreRecord> readRestoreRecord(const std::string& service);
/// Whether there is one, or may be, that cannot be read.
bool isRestoreRecordUnreadable(const std::string& service);
/// Every record that can be read, by service.
std::vector<RestoreRecord> readRestoreRecords();
/// The same, and the paths of those that cannot; of their folder when it cannot be listed.
std::vector<RestoreRecord> readRestoreRecords(std::vector<std::string>& unreadable);

/// Keeps the record in place of the one before; on disk when it returns true.
bool keepRestoreRecord(const RestoreRecord& record);

/// Removes the records of restores that began at this time or before. False when one is still
/// there.
bool dropRestoreRecords(std::int64_t time);

/// What the record of another restore leaves to a new one: all that still stands aside and that the
/// new one does not set aside itself.
std::vector<RestoreRecord::Item> leftOf(const std::optional<RestoreRecord>& before,
                                        const std::vector<RestoreRecord::Item>& items);

/// Every ".previous" that the records name and that stands there, in order of name.
std::vector<std::string> itemsSetAside();

/// Every other ".previous" beside a file that an installed descriptor lists, in order of name: a
/// restore that was not started by helmsman leaves such, and no record.
std::vector<std::string> unrecordedAside();

}  // namespace halyard::hostkit
