// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A configuration file of the kit: a line that was added is read back as the last one, what was
// there stays, and a line that is taken away is gone.
#include <cstdint>

#include "common/configuration.h"
#include "scratch_folder.h"

using halyard::fuzz::expect;
namespace hostkit = halyard::hostkit;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const halyard::fuzz::ScratchFolder folder;
  const std::string path =
      folder.write("conf", std::string_view(reinterpret_cast<const char*>(bytes), size));
  const std::vector<std::string_view> keys = {"volume", "server", "schedule"};
  std::string problem;
  const auto before = hostkit::readConfiguration(path, keys, problem);
  expect(before.has_value() == problem.empty(), "what cannot be read has a reason");
  if (!before) return 0;
  for (const auto& line : *before) {
    expect(line.value.find('\n') == std::string::npos, "a value is one line");
  }
  expect(bool(hostkit::addConfigurationLine(path, "server", "added by the fuzzer")),
         "a line is added");
  const auto added = hostkit::readConfiguration(path, keys, problem);
  expect(added && added->size() == before->size() + 1, "what was there stays");
  expect(added->back().key == "server" && added->back().value == "added by the fuzzer",
         "the added line is the last one");
  expect(bool(hostkit::removeConfigurationLine(path, "server", "added by the fuzzer")),
         "a line is taken away");
  const auto removed = hostkit::readConfiguration(path, keys, problem);
  expect(removed && removed->size() <= before->size(), "and is gone");
  return 0;
}
