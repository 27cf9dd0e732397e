// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/property_file.h"

#include <sys/types.h>

#include "host/files/files.h"
#include "host/files/property_file.h"

namespace halyard::hostkit {

namespace {

constexpr mode_t kNewFileMode = 0644;

}  // namespace

std::optional<PropertyDictionary> readPropertyFile(const std::string& path, std::string& problem) {
  problem.clear();
  if (host::isAbsent(path)) return std::nullopt;
  auto dictionary = host::readDictionary(path);
  if (!dictionary) problem = path + " is no readable property list with a dictionary";
  return dictionary;
}

Status writePropertyFile(const std::string& path, const PropertyDictionary& dictionary) {
  const std::string target = host::realPath(path).value_or(path);
  const auto before = host::readAttributes(target);
  return host::writeFile(target, writePropertyList(dictionary), host::Durability::power,
                         before ? before->permissions : kNewFileMode);
}

}  // namespace halyard::hostkit
