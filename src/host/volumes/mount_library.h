// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// libmount, loaded when the first volume has to be looked up or mounted.
//
// Most commands never need it, and loading it with its own libraries takes longer than all the rest
// of a short command. The types of the functions come from the library's header, so that the
// compiler checks every call.
#pragma once

#include <libmount/libmount.h>

#include <memory>

namespace halyard::host {

/// The functions of libmount that are used; all of them are there.
struct MountLibrary {
  decltype(&::mnt_new_cache) newCache = nullptr;
  decltype(&::mnt_unref_cache) unrefCache = nullptr;
  decltype(&::mnt_cache_find_tag_value) tagValue = nullptr;
  decltype(&::mnt_new_table) newTable = nullptr;
  decltype(&::mnt_unref_table) unrefTable = nullptr;
  decltype(&::mnt_table_set_cache) setTableCache = nullptr;
  decltype(&::mnt_table_parse_file) parseFile = nullptr;
  decltype(&::mnt_table_parse_fstab) parseFstab = nullptr;
  decltype(&::mnt_table_next_fs) nextEntry = nullptr;
  decltype(&::mnt_table_find_tag) findTag = nullptr;
  decltype(&::mnt_new_iter) newIterator = nullptr;
  decltype(&::mnt_free_iter) freeIterator = nullptr;
  decltype(&::mnt_fs_get_source) source = nullptr;
  decltype(&::mnt_fs_get_target) target = nullptr;
  decltype(&::mnt_fs_get_root) root = nullptr;
  decltype(&::mnt_fs_get_id) mountIdentifier = nullptr;
  decltype(&::mnt_fs_get_devno) deviceNumber = nullptr;
  decltype(&::mnt_fs_get_fstype) type = nullptr;
  decltype(&::mnt_fs_get_option) option = nullptr;
  decltype(&::mnt_fs_is_netfs) isNetwork = nullptr;
  decltype(&::mnt_fs_is_pseudofs) isPseudo = nullptr;
  decltype(&::mnt_new_context) newContext = nullptr;
  decltype(&::mnt_free_context) freeContext = nullptr;
  decltype(&::mnt_context_set_fstab) setFstab = nullptr;
  decltype(&::mnt_context_set_target) setTarget = nullptr;
  decltype(&::mnt_context_mount) mount = nullptr;
};

/// The library, loaded once a process; null when the host lacks it.
const MountLibrary* mountLibrary();

using MountCache = std::unique_ptr<libmnt_cache, decltype(&::mnt_unref_cache)>;
using MountTable = std::unique_ptr<libmnt_table, decltype(&::mnt_unref_table)>;
using MountIterator = std::unique_ptr<libmnt_iter, decltype(&::mnt_free_iter)>;
using MountContext = std::unique_ptr<libmnt_context, decltype(&::mnt_free_context)>;

}  // namespace halyard::host
