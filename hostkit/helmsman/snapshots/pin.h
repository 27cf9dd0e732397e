// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman pin" and "helmsman unpin": which snapshots stay whatever the rules say.
#pragma once

#include <string>

namespace halyard::hostkit {

struct PinArguments {
  std::string snapshot;  ///< As findSnapshot takes it.
  std::string note;
};

/// Both have the engine do it, under its lock, and answer with its status.
int pin(const PinArguments& arguments);
int unpin(const PinArguments& arguments);

}  // namespace halyard::hostkit
