// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/map_owners.h"

#include <grp.h>
#include <pwd.h>

#include <string_view>
#include <utility>

namespace halyard::snapwheel {

namespace {

// The kernel's form of an ACL in an attribute: a version, then entries, all little-endian.
constexpr std::size_t kAclHeader = 4;
constexpr std::size_t kAclEntry = 8;
constexpr std::size_t kAclId = 4;  ///< Where the id stands in an entry.
constexpr std::uint8_t kAclUser = 0x02;
constexpr std::uint8_t kAclGroup = 0x08;
constexpr std::string_view kAccessList = "system.posix_acl_access";
constexpr std::string_view kDefaultList = "system.posix_acl_default";

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

void mapOwners(const OwnerMap& map, struct stat& status, host::ExtendedAttributes& attributes) {
  status.st_uid = mapped(map.users, status.st_uid);
  status.st_gid = mapped(map.groups, status.st_gid);
  attributes.change([&map](const std::string& name, std::string value) {
    return name == kAccessList || name == kDefaultList ? mapAcl(std::move(value), map) : value;
  });
}

}  // namespace halyard::snapwheel
