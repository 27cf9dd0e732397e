// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The version that the programs of the host kit tell.
#pragma once

namespace halyard::hostkit {

/// As in "1.0.0".
const char* versionText();

/// The year in which it was built.
int buildYear();

}  // namespace halyard::hostkit
