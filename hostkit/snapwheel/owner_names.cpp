// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/owner_names.h"

#include <grp.h>
#include <pwd.h>

#include <charconv>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/json_file.h"
#include "common/json_members.h"
#include "host/files/files.h"

namespace halyard::snapwheel {

using hostkit::memberOf;

namespace {

using Names = std::map<std::uint32_t, std::string>;

constexpr std::size_t kAccountFileLimit = std::size_t{64} << 20;
constexpr std::size_t kOwnersLimit = std::size_t{16} << 20;
constexpr int kIndent = 2;
constexpr char kOwnersName[] = "owners.json";

std::optional<std::uint32_t> idIn(std::string_view text) {
  std::uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return id;
}

/// The lines of passwd(5) and group(5) alike: name, password, id. The first name of an id counts.
Names readAccounts(const std::string& path) {
  Names names;
  const auto text = host::readFile(path, kAccountFileLimit);
  if (!text) return names;
  for (const std::string_view line : splitAt(*text, '\n')) {
    const auto fields = splitAt(line, ':');
    if (fields.size() < 3 || fields[0].empty()) continue;
    if (const auto id = idIn(fields[2])) names.emplace(*id, fields[0]);
  }
  return names;
}

Names namesFrom(const nlohmann::json& object, const char* key) {
  Names names;
  const nlohmann::json& found = memberOf(object, key);
  if (!found.is_object()) return names;
  for (const auto& [idText, name] : found.items()) {
    const auto id = idIn(idText);
    if (id && name.is_string()) names.emplace(*id, name.get<std::string>());
  }
  return names;
}

nlohmann::json toJson(const Names& names) {
  nlohmann::json object = nlohmann::json::object();
  for (const auto& [id, name] : names) object[std::to_string(id)] = name;
  return object;
}

}  // namespace

OwnerNames namesOf(const OwnerIds& ids, const std::string& root) {
  const Names users = readAccounts(appendPath(root, "/etc/passwd"));
  const Names groups = readAccounts(appendPath(root, "/etc/group"));
  const bool ownHost = root == "/";
  OwnerNames names;
  for (const uid_t id : ids.users) {
    if (const auto found = users.find(id); found != users.end()) {
      names.users.insert(*found);
    } else if (const passwd* account = ownHost ? ::getpwuid(id) : nullptr) {
      names.users.emplace(id, account->pw_name);
    }
  }
  for (const gid_t id : ids.groups) {
    if (const auto found = groups.find(id); found != groups.end()) {
      names.groups.insert(*found);
    } else if (const group* account = ownHost ? ::getgrgid(id) : nullptr) {
      names.groups.emplace(id, account->gr_name);
    }
  }
  return names;
}

Status writeOwnerNames(const RecordPlace& place, const OwnerNames& names) {
  const nlohmann::json object = {{"users", toJson(names.users)}, {"groups", toJson(names.groups)}};
  const std::string text =
      object.dump(kIndent, ' ', false, nlohmann::json::error_handler_t::replace);
  return hostkit::writeRecordFile(place, kOwnersName, text + "\n");
}

std::optional<OwnerNames> readOwnerNames(const RecordPlace& place) {
  const nlohmann::json object = hostkit::readJsonFile(place.path(kOwnersName), kOwnersLimit);
  if (!object.is_object()) return std::nullopt;
  return OwnerNames{namesFrom(object, "users"), namesFrom(object, "groups")};
}

}  // namespace halyard::snapwheel
