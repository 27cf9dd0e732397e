// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the engine leaves out of a snapshot.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace halyard::hostkit {

/// Lets sets of strings be asked with a string_view, without a copy.
struct TextHash {
  using is_transparent = void;  // NOLINT(readability-identifier-naming): the library's word.
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>{}(text);
  }
};

/// A list of patterns, one a line; "#" begins a comment line.
///
/// A pattern with a "/" at its beginning or inside is matched against the whole path from the root
/// of the host ("*" and "?" match no "/"): "/proc/*" leaves out what is in /proc and keeps the
/// folder. Any other pattern is matched against the last name of the path. A "/" at the end is
/// ignored. What is below an excluded folder is left out with it.
///
/// The hand-over folder ".Halyards" at the root of the source is never excluded, nor is anything in
/// it, whatever the patterns say.
class Exclusions {
 public:
  /// Parses the text of an exclusion file.
  static Exclusions parse(std::string_view text);
  /// The list that stands in for a missing file.
  static Exclusions defaults();
  /// Reads a file; absent when it exists and cannot be read. A missing file gives the defaults.
  static std::optional<Exclusions> read(const std::string& path);

  void add(std::string_view pattern);
  /// Leaves out exactly this path, even when it holds letters that mean something in a pattern.
  void addPath(std::string_view relativePath);

  /// Given a path relative to the root of the source, without a leading "/".
  bool match(std::string_view relativePath) const;

  /// The same for the path or any folder above it.
  bool matchAtOrAbove(std::string_view relativePath) const;

  /// A text that two lists share only when they leave out the same things.
  const std::string& fingerprint() const { return fingerprint_; }

 private:
  using TextSet = std::unordered_set<std::string, TextHash, std::equal_to<>>;
  // Most patterns have no wild card, or only "*" as the last name: three set look-ups answer those.
  TextSet paths_;
  TextSet names_;
  TextSet emptiedFolders_;
  std::vector<std::string> pathGlobs_;
  std::vector<std::string> nameGlobs_;
  std::string fingerprint_;
};

/// The text of the default list, as it is installed for administrators to edit.
extern const std::string_view kDefaultExclusions;

}  // namespace halyard::hostkit
