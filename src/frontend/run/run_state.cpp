// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/run/run_state.h"

#include <algorithm>
#include <cstdlib>

namespace halyard {

std::int32_t PreferenceRecord::serviceFlag(std::size_t index) const {
  const Value& value = services.at(index);
  return value ? value->integerValue() : 0;
}

bool PreferenceRecord::hasAnyService() const {
  return std::ranges::any_of(services, [](const Value& value) { return value.has_value(); });
}

RunState& runState() {
  static RunState state;
  return state;
}

void endProcess(std::int32_t status) { std::exit(status); }

}  // namespace halyard
