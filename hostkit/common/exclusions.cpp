// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/exclusions.h"

#include <fnmatch.h>

#include <algorithm>

#include "base/text.h"
#include "host/files/files.h"
#include "product/paths.h"

namespace halyard::hostkit {

const std::string_view kDefaultExclusions =
    R"(# What snapwheel leaves out of a snapshot: one pattern a line.
#
# With a "/" at the beginning or inside: matched against the whole path from the root of the source;
# "*" and "?" match no "/". "/proc/*" leaves out what is in /proc and keeps the folder.
# Without: matched against the last name of each path. What is below an excluded folder goes with it.
# Other mounted file systems, the snapshot repository and the hand-over folder need no line here:
# the first two are never copied, the last one always is.

# What the kernel and the boot make anew
/proc/*
/sys/*
/dev/*
/run/*
/private/var/run/*
/var/run/*
/lost+found

# Temporary files
/tmp/*
/private/tmp/*

# Swap
/swapfile
/swap.img
/swap/*

# Caches that their owners fill again
/var/cache/apt/archives/*
/var/cache/apt/*.bin
/var/cache/man/*
/root/.cache/*
/home/*/.cache/*
)";

namespace {

constexpr std::string_view kHandOver = paths::kMetadataFolderName;
constexpr std::size_t kFileLimit = std::size_t{1} << 20;

bool hasWildCard(std::string_view pattern) {
  return pattern.find_first_of("*?[\\") != std::string_view::npos;
}

bool isHandOver(std::string_view path) {
  return path.starts_with(kHandOver) &&
         (path.size() == kHandOver.size() || path[kHandOver.size()] == '/');
}

std::string_view trimmed(std::string_view line) {
  while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r')) {
    line.remove_suffix(1);
  }
  while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
  return line;
}

}  // namespace

Exclusions Exclusions::parse(std::string_view text) {
  Exclusions exclusions;
  for (const std::string_view line : splitAt(text, '\n')) {
    const std::string_view pattern = trimmed(line);
    if (!pattern.empty() && pattern.front() != '#') exclusions.add(pattern);
  }
  return exclusions;
}

Exclusions Exclusions::defaults() { return parse(kDefaultExclusions); }

std::optional<Exclusions> Exclusions::read(const std::string& path) {
  if (host::isAbsent(path)) return defaults();
  const auto text = host::readFile(path, kFileLimit);
  if (!text) return std::nullopt;
  return parse(*text);
}

void Exclusions::add(std::string_view pattern) {
  while (pattern.size() > 1 && pattern.back() == '/') pattern.remove_suffix(1);
  fingerprint_.append(pattern).push_back('\n');
  const bool wholePath = pattern.find('/') != std::string_view::npos;
  if (wholePath && pattern.front() == '/') pattern.remove_prefix(1);
  if (pattern.empty()) return;
  if (!wholePath) {
    if (hasWildCard(pattern)) {
      nameGlobs_.emplace_back(pattern);
    } else {
      names_.emplace(pattern);
    }
    return;
  }
  if (!hasWildCard(pattern)) {
    paths_.emplace(pattern);
  } else if (pattern.ends_with("/*") && !hasWildCard(pattern.substr(0, pattern.size() - 2))) {
    emptiedFolders_.emplace(pattern.substr(0, pattern.size() - 2));
  } else {
    pathGlobs_.emplace_back(pattern);
  }
}

void Exclusions::addPath(std::string_view relativePath) {
  fingerprint_.append("=").append(relativePath).push_back('\n');
  paths_.emplace(relativePath);
}

bool Exclusions::match(std::string_view relativePath) const {
  if (isHandOver(relativePath)) return false;
  const std::size_t slash = relativePath.rfind('/');
  const bool atRoot = slash == std::string_view::npos;
  const std::string_view name = atRoot ? relativePath : relativePath.substr(slash + 1);
  if (paths_.contains(relativePath) || names_.contains(name)) return true;
  if (!atRoot && emptiedFolders_.contains(relativePath.substr(0, slash))) return true;
  if (pathGlobs_.empty() && nameGlobs_.empty()) return false;

  const std::string path(relativePath);
  const char* last = path.c_str() + (path.size() - name.size());
  return std::any_of(pathGlobs_.begin(), pathGlobs_.end(),
                     [&](const std::string& glob) {
                       return ::fnmatch(glob.c_str(), path.c_str(), FNM_PATHNAME) == 0;
                     }) ||
         std::any_of(nameGlobs_.begin(), nameGlobs_.end(), [&](const std::string& glob) {
           return ::fnmatch(glob.c_str(), last, 0) == 0;
         });
}

bool Exclusions::matchAtOrAbove(std::string_view relativePath) const {
  for (std::size_t end = relativePath.find('/');; end = relativePath.find('/', end + 1)) {
    if (match(relativePath.substr(0, end))) return true;
    if (end == std::string_view::npos) return false;
  }
}

}  // namespace halyard::hostkit
