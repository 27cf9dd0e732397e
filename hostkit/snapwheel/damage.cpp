// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/damage.h"

#include <unistd.h>

#include <cerrno>

#include "base/text.h"
#include "host/files/files.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

namespace {

constexpr std::size_t kDamageLimit = std::size_t{16} << 20;

std::string damagePath(const std::string& snapshotPath) {
  return snapshotPath + "/" + std::string(kRecordFolder) + "/damaged";
}

}  // namespace

std::unordered_set<std::string> readDamage(const std::string& snapshotPath) {
  std::unordered_set<std::string> paths;
  const auto text = host::readFile(damagePath(snapshotPath), kDamageLimit);
  if (!text) return paths;
  for (const std::string_view path : splitAt(*text, '\0')) {
    if (!path.empty()) paths.emplace(path);
  }
  return paths;
}

Status writeDamage(const std::string& snapshotPath, const std::unordered_set<std::string>& paths) {
  const std::string file = damagePath(snapshotPath);
  if (paths.empty()) {
    if (::unlink(file.c_str()) == 0 || errno == ENOENT) return {};
    return Error{errno, file};
  }
  std::string text;
  for (const std::string& path : paths) text.append(path).push_back('\0');
  if (text.size() > kDamageLimit) return Error{EFBIG, file};  // Nobody would read it.
  return host::writeFile(file, text);
}

}  // namespace halyard::snapwheel
