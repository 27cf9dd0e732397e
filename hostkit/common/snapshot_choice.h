// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The snapshot that an administrator means.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard::hostkit {

/// Which of the names the word means: one of them, "latest" in any case for the last complete one,
/// or the beginning of exactly one complete name, else of exactly one name that is not complete.
/// `names` are in ascending order. Absent, with the reason, when it means none or several of them,
/// which are named then.
std::optional<std::string> chooseName(const std::vector<std::string>& names, std::string_view word,
                                      std::string& problem);

}  // namespace halyard::hostkit
