// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the services say they need.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "host/process/task.h"

namespace halyard::hostkit {

/// Runs Halyard's size command, which asks every service that is switched on. In bytes, rounded
/// down to whole KiB as Halyard tells them; absent when it gave no answer. `runner` runs what it is
/// handed, which is Halyard.
using TaskRunner = std::function<host::TaskResult(const std::function<host::TaskResult()>& start)>;
std::optional<std::uint64_t> sizeEstimate(const TaskRunner& runner = nullptr);

}  // namespace halyard::hostkit
