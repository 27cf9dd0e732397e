// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/command_support.h"

#include <cstdio>

#include "common/machine.h"
#include "product/computer_name.h"
#include "snapwheel/failure.h"
#include "snapwheel/settings.h"

namespace halyard::snapwheel {

Repository openRepository(const CommandOptions& options) {
  return Repository(findDestination(options.destination),
                    options.computer.empty() ? computerName() : options.computer);
}

Repository openToChange(const CommandOptions& options) {
  Repository repository = openRepository(options);
  if (repository.computerName() != computerName()) return repository;
  const std::string refusal = hostkit::folderRefusal(repository.destination());
  if (!refusal.empty()) throw Failure(refusal);
  return repository;
}

std::string secondsText(std::chrono::steady_clock::time_point begin) {
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds.count());
  return text;
}

std::string countText(std::uint64_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

hostkit::Exclusions exclusionsFor(const CommandOptions& options) {
  auto exclusions = hostkit::Exclusions::read(options.exclusionFile);
  if (!exclusions) throw Failure(options.exclusionFile + " cannot be read");
  for (const std::string& pattern : options.configuredExcludes) exclusions->add(pattern);
  for (const std::string& pattern : options.excludes) exclusions->add(pattern);
  return *exclusions;
}

}  // namespace halyard::snapwheel
