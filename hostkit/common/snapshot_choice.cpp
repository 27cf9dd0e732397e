// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/snapshot_choice.h"

#include <algorithm>

#include "base/text.h"
#include "product/paths.h"
#include "product/snapshot_name.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kNamedCandidates = 5;

std::string ambiguityText(const std::vector<std::string>& fitting, std::string_view word) {
  std::string text = "\"" + std::string(word) + "\" is the beginning of " +
                     std::to_string(fitting.size()) + " snapshots: ";
  const std::size_t named = std::min(fitting.size(), kNamedCandidates);
  for (std::size_t at = 0; at < named; ++at) text += (at == 0 ? "" : ", ") + fitting[at];
  if (fitting.size() > named) text += " and " + std::to_string(fitting.size() - named) + " more";
  return text;
}

}  // namespace

std::optional<std::string> chooseName(const std::vector<std::string>& names, std::string_view word,
                                      std::string& problem) {
  if (std::ranges::find(names, word) != names.end()) return std::string(word);
  std::vector<std::string> complete;
  std::vector<std::string> others;
  const bool isLatest = equalsIgnoringCase(word, paths::kLatestName);
  for (const std::string& name : names) {
    if (!isLatest && (word.empty() || !name.starts_with(word))) continue;
    if (isLatest && !snapshotInstant(name)) continue;
    (isInProgress(name) ? others : complete).push_back(name);
  }
  if (isLatest && !complete.empty()) return complete.back();
  const std::vector<std::string>& fitting = complete.empty() && !isLatest ? others : complete;
  if (fitting.size() == 1) return fitting.front();
  problem = isLatest          ? "there is no snapshot yet"
            : fitting.empty() ? "there is no snapshot \"" + std::string(word) + "\""
                              : ambiguityText(fitting, word);
  return std::nullopt;
}

}  // namespace halyard::hostkit
