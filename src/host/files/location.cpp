// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/files/location.h"

#include <string_view>

#include "host/files/system_call.h"

namespace halyard::host {

Result<Location> locate(const std::string& path) {
  Location location;
  std::string_view text = path;
  while (text.size() > 1 && text.ends_with('/')) text.remove_suffix(1);
  const std::size_t slash = text.rfind('/');

  std::string folder = ".";
  if (text == "/") {
    folder = "/";
    location.name = ".";
  } else if (slash == std::string_view::npos) {
    location.name = text;
  } else {
    folder = text.substr(0, slash + 1);
    location.name = text.substr(slash + 1);
  }
  if (text.empty()) return Error{ENOENT, path};
  location.folder = Descriptor(
      uninterrupted([&] { return ::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
  if (!location.folder) return Error{errno, path};
  return location;
}

}  // namespace halyard::host
