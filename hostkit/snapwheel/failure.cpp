// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/failure.h"

#include "common/messages.h"

namespace halyard::snapwheel {

std::string errorText(const std::string& what, int error) {
  return what + ": " + hostkit::errnoText(error);
}

Failure failureOf(const Error& error) { return Failure(errorText(error.tried, error.code)); }

}  // namespace halyard::snapwheel
