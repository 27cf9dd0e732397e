// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Text from file names, volumes and services as a terminal may see it.
#pragma once

#include <string>
#include <string_view>

namespace halyard::hostkit {

/// Control characters (tabs stay), marks that turn the direction of writing, and bytes that are no
/// UTF-8 as \xNN: a name cannot move the cursor, begin a line of its own or hide a part of itself.
std::string visibleText(std::string_view text);

}  // namespace halyard::hostkit
