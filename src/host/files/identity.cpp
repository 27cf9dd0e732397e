// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/identity.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "host/files/system_call.h"

namespace halyard::host {

int identify(int descriptor, Identity& identity) {
  struct statx status = {};
  if (const int error = errorOf([&] {
        return ::statx(descriptor, "", AT_EMPTY_PATH, STATX_INO | STATX_MNT_ID, &status);
      })) {
    return error;
  }
  identity.device = ::makedev(status.stx_dev_major, status.stx_dev_minor);
  identity.inode = status.stx_ino;
  identity.mount = (status.stx_mask & STATX_MNT_ID) != 0 ? status.stx_mnt_id : 0;
  return 0;
}

}  // namespace halyard::host
