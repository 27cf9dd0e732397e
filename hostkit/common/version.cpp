// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/version.h"

namespace halyard::hostkit {

const char* versionText() { return HOSTKIT_VERSION; }

int buildYear() { return HOSTKIT_BUILD_YEAR; }

}  // namespace halyard::hostkit
