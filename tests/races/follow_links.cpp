// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Preloaded by tools/races: takes away what keeps root from following a link, so that each race is
// seen to catch a program that follows them.
#include <dlfcn.h>
#include <fcntl.h>

#include <cstdarg>

namespace {

template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

mode_t modeIn(int flags, va_list words) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(words, mode_t) : 0;
}

int follow(int folder, const char* path, int flags, mode_t mode) {
  static const auto real = next<int (*)(int, const char*, int, ...)>("openat64");
  return real(folder, path, flags & ~O_NOFOLLOW, mode);
}

}  // namespace

extern "C" int open(const char* path, int flags, ...) {
  va_list words;
  va_start(words, flags);
  const mode_t mode = modeIn(flags, words);
  va_end(words);
  return follow(AT_FDCWD, path, flags, mode);
}

extern "C" int openat(int folder, const char* path, int flags, ...) {
  va_list words;
  va_start(words, flags);
  const mode_t mode = modeIn(flags, words);
  va_end(words);
  return follow(folder, path, flags, mode);
}
