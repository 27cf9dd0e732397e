// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which machine this is, and which one a host's folder in a repository is recorded as.
#pragma once

#include <string>
#include <string_view>

namespace halyard::hostkit {

/// Of this machine, 32 hexadecimal digits in lower case; empty when it has none.
std::string machineIdentifier();

/// <real destination>/Archives.snapdb.
std::string repositoryAt(const std::string& destination);

/// Why nothing may be written to or removed from this host's folder at the destination, with the
/// commands that mend it: the folder is recorded as another machine's, or this one has no
/// identifier to compare; or the folder is not there and another one is recorded as this
/// machine's. Empty when nothing speaks against it. The records are untrusted input.
std::string folderRefusal(const std::string& destination);

/// The text as one word of a shell's command line.
std::string shellWord(std::string_view text);

}  // namespace halyard::hostkit
