// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Names for items that are not finished yet.
#pragma once

#include <string>

namespace halyard::host {

/// A new name that nobody can foresee: ".halyard-" and 16 hexadecimal digits. The caller creates
/// the item exclusively and takes another name when that one is taken.
std::string temporaryName();

inline constexpr int kTemporaryNameAttempts = 16;

}  // namespace halyard::host
