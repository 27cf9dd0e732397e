// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/build_paths.h"

namespace halyard::test {

// Only this file is compiled with paths in it, so that a compiler cache serves every checkout.

const std::string& builtProgram() {
  static const std::string path = HALYARD_PROGRAM;
  return path;
}

const std::string& sourceFolder() {
  static const std::string path = HALYARD_SOURCE_DIR;
  return path;
}

const std::string& buildFolder() {
  static const std::string path = HALYARD_BINARY_DIR;
  return path;
}

}  // namespace halyard::test
