// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Runs one operation at its fixed paths, inside a private root.
#pragma once

#include <functional>

#include "support/private_root.h"

namespace halyard::test {

/// Runs the function in a child that has entered the root, with a fresh run state. Its result is
/// the status; expectations do not work in there. Standard output and error are kept apart.
CommandResult runOperation(const PrivateRoot& root, const std::function<int()>& act);

}  // namespace halyard::test
