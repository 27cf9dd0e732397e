// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What is not as it has to be, for a person.
#pragma once

#include <string>

namespace halyard::hostkit {

struct Problem {
  std::string text;    ///< What is wrong: a sentence without its full stop.
  std::string advice;  ///< What to do, in the imperative.
};

}  // namespace halyard::hostkit
