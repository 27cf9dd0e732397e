// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/damage.h"

#include <cerrno>

#include "base/text.h"
#include "common/record_file.h"

namespace halyard::snapwheel {

namespace {

constexpr std::size_t kDamageLimit = std::size_t{16} << 20;
constexpr char kDamageName[] = "damaged";

}  // namespace

DamageRecord readDamage(const RecordPlace& place) {
  DamageRecord record;
  const hostkit::RecordFile file = hostkit::readRecordFile(place, kDamageName, kDamageLimit);
  record.isUnreadable = file.stands && !file.bytes;
  if (!file.bytes) return record;
  for (const std::string_view path : splitAt(*file.bytes, '\0')) {
    if (!path.empty()) record.paths.emplace(path);
  }
  return record;
}

Status writeDamage(const RecordPlace& place, const std::unordered_set<std::string>& paths) {
  if (paths.empty()) return hostkit::removeRecordFile(place, kDamageName);
  std::string text;
  for (const std::string& path : paths) text.append(path).push_back('\0');
  if (text.size() > kDamageLimit) {  // Nobody would read it.
    return Error{EFBIG, place.path(kDamageName)};
  }
  return hostkit::writeRecordFile(place, kDamageName, text);
}

}  // namespace halyard::snapwheel
