// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/writable_snapshot.h"

#include "host/volumes/subvolume.h"

namespace halyard::snapwheel {

WritableSnapshot::WritableSnapshot(const Repository& repository, const std::string& name)
    : folder_(repository.open()), name_(name), isLocked_(host::isSubvolume(folder_.get(), name_)) {
  // A refusal shows in what is to be written.
  if (isLocked_) (void)host::setSubvolumeReadOnly(folder_.get(), name_, false);
}

WritableSnapshot::~WritableSnapshot() {
  // A precaution; nothing rests on it.
  if (isLocked_) (void)host::setSubvolumeReadOnly(folder_.get(), name_, true);
}

}  // namespace halyard::snapwheel
