// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/tree/extended_attributes.h"

#include <linux/limits.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "host/files/system_call.h"

namespace halyard::host {

namespace {

constexpr const char* kAccessList = "system.posix_acl_access";
constexpr const char* kDefaultList = "system.posix_acl_default";

bool belongsEverywhere(std::string_view name) {
  return name.starts_with("user.") || name.starts_with("trusted.") ||
         name.starts_with("security.") || name.starts_with("system.posix_acl_");
}

/// Another view of what "system.posix_acl_*" gives, which XFS shows to root.
bool isDoubled(std::string_view name) { return name.starts_with("trusted.SGI_ACL_"); }

/// Fills `text` with what a call that takes a buffer and its size answers; a first try with a small
/// buffer serves nearly every item, and costs the kernel less.
template <typename Call>
int fillText(std::string& text, std::size_t largest, Call call) {
  std::array<char, 512> small{};
  ssize_t size = uninterrupted([&] { return call(small.data(), small.size()); });
  if (size >= 0) {
    text.assign(small.data(), static_cast<std::size_t>(size));
    return 0;
  }
  if (errno != ERANGE) return errno;
  text.resize(largest);
  size = uninterrupted([&] { return call(text.data(), text.size()); });
  if (size < 0) return errno;
  text.resize(static_cast<std::size_t>(size));
  return 0;
}

int listNames(const AttributeItem& item, std::string& names) {
  const int error = fillText(names, XATTR_LIST_MAX, [&](char* buffer, std::size_t size) {
    return item.list(buffer, size);
  });
  if (error == EOPNOTSUPP) names.clear();  // A file system without any.
  return error == EOPNOTSUPP ? 0 : error;
}

/// Calls `visit` with each name that counts; each is ended by a NUL.
template <typename Visit>
int forEachName(const std::string& names, Visit visit) {
  for (std::size_t at = 0; at < names.size();) {
    const char* name = names.c_str() + at;
    at += std::string_view(name).size() + 1;
    if (isDoubled(name)) continue;
    if (const int error = visit(name)) return error;
  }
  return 0;
}

}  // namespace

ssize_t AttributeItem::list(char* names, std::size_t size) const {
  return name_ == nullptr ? ::flistxattr(descriptor_, names, size)
                          : ::llistxattr(name_, names, size);
}

ssize_t AttributeItem::get(const char* attribute, void* value, std::size_t size) const {
  return name_ == nullptr ? ::fgetxattr(descriptor_, attribute, value, size)
                          : ::lgetxattr(name_, attribute, value, size);
}

int AttributeItem::set(const char* attribute, const std::string& value) const {
  return errorOf([&] {
    return name_ == nullptr ? ::fsetxattr(descriptor_, attribute, value.data(), value.size(), 0)
                            : ::lsetxattr(name_, attribute, value.data(), value.size(), 0);
  });
}

int AttributeItem::remove(const char* attribute) const {
  return errorOf([&] {
    return name_ == nullptr ? ::fremovexattr(descriptor_, attribute)
                            : ::lremovexattr(name_, attribute);
  });
}

WorkingFolder::WorkingFolder(int folder)
    : former_(uninterrupted([] { return ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC); })) {
  error_ = former_ ? errorOf([&] { return ::fchdir(folder); }) : errno;
}

WorkingFolder::~WorkingFolder() {
  if (error_ == 0) (void)errorOf([&] { return ::fchdir(former_.get()); });
}

int ExtendedAttributes::read(const AttributeItem& item) {
  attributes_.clear();
  std::string names;
  if (const int error = listNames(item, names)) return error;
  if (names.empty()) return 0;
  const int error = forEachName(names, [&](const char* name) {
    std::string value;
    const int unread = fillText(value, XATTR_SIZE_MAX, [&](char* buffer, std::size_t size) {
      return item.get(name, buffer, size);
    });
    if (unread == ENODATA) return 0;  // Taken away since it was listed.
    if (unread == 0) attributes_.emplace_back(name, std::move(value));
    return unread;
  });
  std::ranges::sort(attributes_);
  return error;
}

bool ExtendedAttributes::isSameEverywhere(const ExtendedAttributes& other) const {
  const auto portable = [](const std::vector<Attribute>& attributes) {
    std::vector<Attribute> kept;
    std::ranges::copy_if(attributes, std::back_inserter(kept),
                         [](const Attribute& one) { return belongsEverywhere(one.first); });
    return kept;
  };
  return attributes_ == other.attributes_ || portable(attributes_) == portable(other.attributes_);
}

int ExtendedAttributes::give(const AttributeItem& item, bool* lost) const {
  for (const auto& [name, value] : attributes_) {
    const int error = item.set(name.c_str(), value);
    if (error == EOPNOTSUPP && !belongsEverywhere(name)) continue;
    const bool cannotHold = error == EOPNOTSUPP || error == EPERM || error == E2BIG ||
                            error == ERANGE || error == EINVAL;
    if (lost != nullptr && cannotHold) {
      *lost = true;
    } else if (error != 0) {
      return error;
    }
  }
  return 0;
}

int ExtendedAttributes::removeOthers(const AttributeItem& item) const {
  std::string names;
  if (const int error = listNames(item, names)) return error;
  return forEachName(names, [&](const char* name) {
    const bool isOurs = std::ranges::any_of(
        attributes_, [&](const auto& attribute) { return attribute.first == name; });
    if (isOurs || !belongsEverywhere(name)) return 0;
    const int error = item.remove(name);
    return error == ENODATA ? 0 : error;
  });
}

int removeInheritedLists(int descriptor) {
  const AttributeItem item = AttributeItem::opened(descriptor);
  for (const char* list : {kAccessList, kDefaultList}) {
    const int error = item.remove(list);
    if (error != 0 && error != ENODATA && error != EOPNOTSUPP) return error;
  }
  return 0;
}

int removeInheritedList(int folder, const char* name) {
  const WorkingFolder here(folder);
  if (here.error() != 0) return here.error();
  const int error = AttributeItem::named(name).remove(kAccessList);
  return error == ENODATA || error == EOPNOTSUPP ? 0 : error;
}

bool handsDownLists(int folder) {
  return uninterrupted([&] { return ::fgetxattr(folder, kDefaultList, nullptr, 0); }) > 0;
}

}  // namespace halyard::host
