// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/folder_chain.h"

#include <utility>

#include "host/files/system_call.h"

namespace halyard::host {

namespace {

constexpr std::size_t kOpenFolders = 32;

}  // namespace

void FolderChain::push(Descriptor folder, const Identity& identity) {
  if (links_.size() >= kOpenFolders) links_[links_.size() - kOpenFolders].folder.reset();
  links_.push_back({std::move(folder), identity});
}

int FolderChain::pop() {
  const Descriptor below = std::move(links_.back().folder);
  links_.pop_back();
  if (links_.empty() || links_.back().folder) return 0;

  Descriptor above(uninterrupted([&] { return ::openat(below.get(), "..", kFolderFlags); }));
  if (!above) return errno;
  Identity identity;
  if (const int error = identify(above.get(), identity)) return error;
  if (!identity.sameItem(links_.back().identity)) return ESTALE;
  links_.back().folder = std::move(above);
  return 0;
}

}  // namespace halyard::host
