// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman volumes": shows the local volumes, and changes which of them a snapshot holds.
#pragma once

#include <string>

namespace halyard::hostkit {

struct VolumesArguments {
  enum class Action {
    show,
    leaveOut,  ///< From now on,
    include,   ///< or no more, and taken whatever it holds.
  };
  Action action = Action::show;
  std::string path;  ///< Of what is left out or included.
  bool json = false;
};

/// "helmsman volumes": lists them, or changes what is left out. Returns the exit status.
int volumes(const VolumesArguments& arguments);

}  // namespace halyard::hostkit
