// What the services say they need.
#pragma once

#include <cstdint>
#include <optional>

namespace halyard::hostkit {

/// Runs Halyard's size command, which asks every service that is switched on. In bytes, rounded
/// down to whole KiB as Halyard tells them; absent when it gave no answer.
std::optional<std::uint64_t> sizeEstimate();

}  // namespace halyard::hostkit
