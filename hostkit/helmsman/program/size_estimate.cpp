// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/program/size_estimate.h"

#include <cstdlib>
#include <string>
#include <string_view>

#include "base/text.h"
#include "helmsman/program/halyard_run.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

std::optional<std::uint64_t> sizeEstimate(const TaskRunner& runner) {
  static constexpr std::string_view kPrefix = texts::kSizeTotal;
  const auto start = [] { return runHalyard({"-cmd", "size"}); };
  const host::TaskResult result = runner ? runner(start) : start();
  std::optional<std::uint64_t> bytes;
  for (const std::string_view line : splitAt(result.output, '\n')) {
    if (result.status != 0 || !line.starts_with(kPrefix)) continue;
    // The total of several services may be more than 32 bits of KiB hold.
    const long long kibibytes =
        std::strtoll(std::string(line.substr(kPrefix.size())).c_str(), nullptr, 10);
    bytes = kibibytes < 0 ? 0 : static_cast<std::uint64_t>(kibibytes) * 1024;
  }
  return bytes;
}

}  // namespace halyard::hostkit
