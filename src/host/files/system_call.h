// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What every unit that makes system calls shares.
//
// Within this folder a function that makes system calls for its caller answers with an error
// number: 0, or the errno value of the call that failed.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>

namespace halyard::host {

/// Makes a system call again for as long as a signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) -> decltype(call()) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

/// The error number of a call that answers 0 or -1.
template <typename Call>
int errorOf(Call call) {
  return uninterrupted(call) == 0 ? 0 : errno;
}

inline constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// Whether an error says only that this way of doing something is not to be had here, so that
/// another way may be tried. A broken or full disk is not such an error.
inline bool isUnsupported(int error) {
  return error == EOPNOTSUPP || error == ENOSYS || error == EXDEV || error == EINVAL ||
         error == ENOTTY;
}

}  // namespace halyard::host
