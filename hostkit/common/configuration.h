// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The kit's own configuration files: lines "key = value".
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace halyard::hostkit {

struct ConfigurationLine {
  std::string key;
  std::string value;  ///< Without the blanks around it.
  std::size_t number = 0;
};

/// The lines of a file, in order; a key may stand several times. Empty lines and those that begin
/// with "#" or ";" say nothing. None when the file is not there.
///
/// Absent, with the reason and the line's number, when the file cannot be read, or when a line is
/// no "key = value" or its key is not among `keys`: a setting that is misspelt must not pass for
/// one that is made.
std::optional<std::vector<ConfigurationLine>> readConfiguration(
    const std::string& path, const std::vector<std::string_view>& keys, std::string& problem);

/// The lines of a file that are "key = value", whatever the others are: of a program that reads the
/// file itself. None when it is not there or cannot be read.
std::vector<ConfigurationLine> configurationLines(const std::string& path);

/// Takes away every line of these keys and adds the given ones at the end, at once and for good;
/// everything else stays as it is. EIO when what is there cannot be read.
Status replaceConfigurationLines(const std::string& path, const std::vector<std::string_view>& keys,
                                 const std::vector<ConfigurationLine>& lines);

/// Adds a line "key = value" at the end, at once and for good. EIO when what is there cannot be
/// read.
Status addConfigurationLine(const std::string& path, std::string_view key, std::string_view value);

/// Takes away every line of that key and value; everything else stays as it is, comments too.
/// EIO when what is there cannot be read.
Status removeConfigurationLine(const std::string& path, std::string_view key,
                               std::string_view value);

}  // namespace halyard::hostkit
