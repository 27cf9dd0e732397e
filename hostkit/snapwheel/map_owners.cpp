// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/map_owners.h"

#include <fts.h>
#include <grp.h>
#include <linux/limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "common/messages.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {

namespace {

// The kernel's form of an ACL in an attribute: a version, then entries, all little-endian.
constexpr std::size_t kAclHeader = 4;
constexpr std::size_t kAclEntry = 8;
constexpr std::size_t kAclId = 4;  ///< Where the id stands in an entry.
constexpr std::uint8_t kAclUser = 0x02;
constexpr std::uint8_t kAclGroup = 0x08;
constexpr const char* kAclNames[] = {"system.posix_acl_access", "system.posix_acl_default"};
constexpr const char* kCapability = "security.capability";

std::uint32_t mapped(const std::map<std::uint32_t, std::uint32_t>& map, std::uint32_t id) {
  const auto found = map.find(id);
  return found == map.end() ? id : found->second;
}

std::uint32_t littleEndian(const char* bytes) {
  std::uint32_t value = 0;
  for (int index = 3; index >= 0; --index) {
    value = value << 8 | static_cast<std::uint8_t>(bytes[index]);
  }
  return value;
}

void setLittleEndian(char* bytes, std::uint32_t value) {
  for (int index = 0; index < 4; ++index) {
    bytes[index] = static_cast<char>(value & 0xff);
    value >>= 8;
  }
}

std::optional<std::string> attribute(const char* path, const char* name) {
  std::string value(XATTR_SIZE_MAX, '\0');
  const ssize_t length = ::lgetxattr(path, name, value.data(), value.size());
  if (length < 0) return std::nullopt;
  value.resize(static_cast<std::size_t>(length));
  return value;
}

/// Gives the copy the mapped owner of the original and, where they differ, its mapped ACLs: 0, or
/// the errno value of the first call that was refused. Everything is derived from the original, so
/// that an item with several names may be met several times.
int mapItem(const char* original, const char* copy, const struct stat& status,
            const OwnerMap& map) {
  const bool isLink = S_ISLNK(status.st_mode);
  const uid_t user = mapped(map.users, status.st_uid);
  const gid_t group = mapped(map.groups, status.st_gid);
  if (user != status.st_uid || group != status.st_gid) {
    if (::lchown(copy, user, group) != 0) return errno;
    // A change of owner drops set-id bits and capabilities.
    if (!isLink && ::chmod(copy, status.st_mode & 07777) != 0) return errno;
    const auto capability =
        S_ISREG(status.st_mode) ? attribute(original, kCapability) : std::nullopt;
    if (capability &&
        ::lsetxattr(copy, kCapability, capability->data(), capability->size(), 0) != 0) {
      return errno;
    }
  }
  if (isLink) return 0;
  for (const char* name : kAclNames) {
    const auto before = attribute(original, name);
    if (!before) continue;
    const std::string after = mapAcl(*before, map);
    if (after != *before && ::lsetxattr(copy, name, after.data(), after.size(), 0) != 0) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

OwnerMap ownerMapFor(const OwnerNames& names) {
  OwnerMap map;
  for (const auto& [id, name] : names.users) {
    const passwd* account = ::getpwnam(name.c_str());
    if (account != nullptr && account->pw_uid != id) map.users.emplace(id, account->pw_uid);
  }
  for (const auto& [id, name] : names.groups) {
    const group* account = ::getgrnam(name.c_str());
    if (account != nullptr && account->gr_gid != id) map.groups.emplace(id, account->gr_gid);
  }
  return map;
}

std::string mapAcl(std::string value, const OwnerMap& map) {
  if (value.size() < kAclHeader || (value.size() - kAclHeader) % kAclEntry != 0) return value;
  for (std::size_t at = kAclHeader; at < value.size(); at += kAclEntry) {
    const auto tag = static_cast<std::uint8_t>(value[at]);
    if (tag != kAclUser && tag != kAclGroup) continue;
    char* id = value.data() + at + kAclId;
    setLittleEndian(id, mapped(tag == kAclUser ? map.users : map.groups, littleEndian(id)));
  }
  return value;
}

std::uint64_t mapOwners(const std::string& volumePath, const std::string& target,
                        const OwnerNames& names) {
  const OwnerMap map = ownerMapFor(names);
  if (map.empty()) return 0;

  char* roots[] = {const_cast<char*>(volumePath.c_str()), nullptr};
  const std::unique_ptr<FTS, decltype(&::fts_close)> tree(
      ::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, nullptr), &::fts_close);
  if (!tree) throw Failure(errorText(volumePath, errno));
  std::uint64_t failed = 0;
  while (const FTSENT* entry = ::fts_read(tree.get())) {
    if (entry->fts_info == FTS_DP) continue;
    const std::string copy = target + (entry->fts_path + volumePath.size());
    const bool readable =
        entry->fts_info != FTS_DNR && entry->fts_info != FTS_ERR && entry->fts_info != FTS_NS;
    const int error = readable ? mapItem(entry->fts_accpath, copy.c_str(), *entry->fts_statp, map)
                               : entry->fts_errno;
    if (error == 0) continue;
    ++failed;
    hostkit::printError(errorText(copy, error));
  }
  return failed;
}

}  // namespace halyard::snapwheel
