// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/mount_library.h"

#include <dlfcn.h>

#include <optional>

namespace halyard::host {

namespace {

/// Looks functions up by name and remembers whether one was missing.
class Loader {
 public:
  explicit Loader(void* handle) : handle_(handle) {}

  template <typename Function>
  void find(const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(handle_, name));
    if (function == nullptr) complete_ = false;
  }

  bool isComplete() const { return complete_; }

 private:
  void* handle_;
  bool complete_ = true;
};

std::optional<MountLibrary> load() {
  // Stays loaded to the end of the process.
  void* handle = ::dlopen("libmount.so.1", RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return std::nullopt;
  MountLibrary library;
  Loader loader(handle);
  loader.find("mnt_new_cache", library.newCache);
  loader.find("mnt_unref_cache", library.unrefCache);
  loader.find("mnt_cache_find_tag_value", library.tagValue);
  loader.find("mnt_new_table", library.newTable);
  loader.find("mnt_unref_table", library.unrefTable);
  loader.find("mnt_table_set_cache", library.setTableCache);
  loader.find("mnt_table_parse_file", library.parseFile);
  loader.find("mnt_table_parse_fstab", library.parseFstab);
  loader.find("mnt_table_next_fs", library.nextEntry);
  loader.find("mnt_table_find_tag", library.findTag);
  loader.find("mnt_new_iter", library.newIterator);
  loader.find("mnt_free_iter", library.freeIterator);
  loader.find("mnt_fs_get_source", library.source);
  loader.find("mnt_fs_get_target", library.target);
  loader.find("mnt_fs_get_root", library.root);
  loader.find("mnt_fs_get_id", library.mountIdentifier);
  loader.find("mnt_fs_get_devno", library.deviceNumber);
  loader.find("mnt_fs_get_fstype", library.type);
  loader.find("mnt_fs_get_option", library.option);
  loader.find("mnt_fs_is_netfs", library.isNetwork);
  loader.find("mnt_fs_is_pseudofs", library.isPseudo);
  loader.find("mnt_new_context", library.newContext);
  loader.find("mnt_free_context", library.freeContext);
  loader.find("mnt_context_set_fstab", library.setFstab);
  loader.find("mnt_context_set_target", library.setTarget);
  loader.find("mnt_context_mount", library.mount);
  if (!loader.isComplete()) return std::nullopt;
  return library;
}

}  // namespace

const MountLibrary* mountLibrary() {
  static const std::optional<MountLibrary> kLibrary = load();
  return kLibrary ? &*kLibrary : nullptr;
}

}  // namespace halyard::host
