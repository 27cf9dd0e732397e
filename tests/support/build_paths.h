// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Where the build put what the tests run, and where the sources are.
#pragma once

#include <string>

namespace halyard::test {

/// The built program.
const std::string& builtProgram();
/// The top of the sources.
const std::string& sourceFolder();
/// The top of the build: the other programs lie in it, and private roots are made below it.
const std::string& buildFolder();

}  // namespace halyard::test
