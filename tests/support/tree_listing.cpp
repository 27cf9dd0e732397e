// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/tree_listing.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <utility>

#include "support/scratch.h"

namespace halyard::test {

namespace {

std::string attributesOf(const std::string& path) {
  std::array<char, 65536> names{};
  const ssize_t size = ::llistxattr(path.c_str(), names.data(), names.size());
  std::vector<std::string> attributes;
  for (ssize_t at = 0; at < size;) {
    const std::string name = names.data() + at;
    at += static_cast<ssize_t>(name.size()) + 1;
    // XFS shows access control lists a second time under names of its own.
    if (name.starts_with("trusted.SGI_ACL_")) continue;
    std::array<char, 65536> value{};
    const ssize_t length = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    std::string bytes(value.data(), length < 0 ? 0 : static_cast<std::size_t>(length));
    attributes.push_back(name + "#" + std::to_string(std::hash<std::string>{}(bytes)));
  }
  std::ranges::sort(attributes);
  std::string text;
  for (const std::string& attribute : attributes) text += " " + attribute;
  return text;
}

std::string targetOf(const std::string& path) {
  return std::filesystem::read_symlink(path).string();
}

std::string describe(const std::string& path, const struct stat& status) {
  std::ostringstream line;
  line << std::oct << status.st_mode << std::dec << " " << status.st_uid << ":" << status.st_gid
       << " " << status.st_mtim.tv_sec << "." << status.st_mtim.tv_nsec;
  if (S_ISREG(status.st_mode)) {
    line << " " << status.st_size << " bytes #"
         << std::hash<std::string>{}(Scratch::contents(path));
  } else if (S_ISLNK(status.st_mode)) {
    line << " -> " << targetOf(path);
  } else if (!S_ISDIR(status.st_mode)) {
    line << " " << ::major(status.st_rdev) << "," << ::minor(status.st_rdev);
  }
  return line.str() + attributesOf(path);
}

}  // namespace

std::vector<std::string> listTree(const std::string& path) {
  std::vector<std::string> paths{path};
  struct stat status = {};
  if (::lstat(path.c_str(), &status) != 0) return {"missing"};
  if (S_ISDIR(status.st_mode)) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
      paths.push_back(entry.path());
    }
  }
  std::ranges::sort(paths);

  std::vector<std::string> lines;
  std::map<std::pair<dev_t, ino_t>, std::string> firstNames;
  for (const std::string& item : paths) {
    if (::lstat(item.c_str(), &status) != 0) continue;
    const std::string relative = item.substr(path.size());
    const auto first = firstNames.try_emplace({status.st_dev, status.st_ino}, relative).first;
    lines.push_back(relative + " " + describe(item, status) + " is " + first->second);
  }
  return lines;
}

}  // namespace halyard::test
