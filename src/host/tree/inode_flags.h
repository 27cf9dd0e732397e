// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The flags of an inode that chattr(1) sets: of regular files and folders alone.
#pragma once

#include <linux/fs.h>

#include <cstdint>

namespace halyard::host {

/// As FS_IOC_GETFLAGS gives them.
using InodeFlags = std::uint32_t;

/// Those that administrators set; the others say how a file system stores an item.
inline constexpr InodeFlags kSettableFlags =
    FS_IMMUTABLE_FL | FS_APPEND_FL | FS_NODUMP_FL | FS_NOATIME_FL | FS_SYNC_FL | FS_DIRSYNC_FL |
    FS_NOCOW_FL | FS_COMPR_FL | FS_NOCOMP_FL | FS_JOURNAL_DATA_FL | FS_NOTAIL_FL | FS_TOPDIR_FL |
    FS_DAX_FL | FS_PROJINHERIT_FL | FS_SECRM_FL | FS_UNRM_FL;

/// An item with one of these cannot be renamed, linked, removed or written to.
inline constexpr InodeFlags kLockingFlags = FS_IMMUTABLE_FL | FS_APPEND_FL;

/// These concern what is written from then on, and one of them can only be set of an empty file.
inline constexpr InodeFlags kFlagsOfContents = FS_NOCOW_FL | FS_COMPR_FL | FS_NOCOMP_FL;

/// The settable flags of an item; none where the file system has no flags.
int readInodeFlags(int descriptor, InodeFlags& flags);

/// Gives the item exactly these of the settable flags, as far as its file system can hold them;
/// `lacking` are those that it has now and should not have, or the other way round.
int setInodeFlags(int descriptor, InodeFlags wanted, InodeFlags& lacking);

/// Takes the locking flags from the item of this name; `former` are the settable flags that it had.
int unlockItem(int folder, const char* name, InodeFlags& former);

/// The same for all below a folder, which is to be removed.
void unlockTree(int folder, const char* name);

}  // namespace halyard::host
