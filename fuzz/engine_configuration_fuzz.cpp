// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The engine's configuration file: it is taken or refused as a wrong usage, and a rule that
// helmsman shows of it is one that the engine applies.
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>

#include "base/text.h"
#include "common/configuration.h"
#include "common/exit_status.h"
#include "common/program.h"
#include "scratch_folder.h"
#include "snapwheel/command_line.h"

using halyard::fuzz::expect;
namespace hostkit = halyard::hostkit;
namespace snapwheel = halyard::snapwheel;

namespace {

/// What the engine says goes nowhere.
class Silence {
 public:
  Silence() { stderr = nowhere(); }
  ~Silence() { stderr = before_; }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  static FILE* nowhere() {
    static FILE* const file = std::fopen("/dev/null", "we");
    return file;
  }
  FILE* before_ = stderr;
};

int parse(const std::string& path, snapwheel::CommandOptions& options) {
  const Silence silence;
  snapwheel::Command command;
  CLI::App app("", "snapwheel");
  snapwheel::addCommandLine(app, options, command);
  return hostkit::runProgram(app, {"--config", path, "latest"}, [] { return hostkit::kSuccess; });
}

/// Of the lines that are one of a kind, in a file without sections.
void compareRules(const std::string& path, const snapwheel::RetentionRules& rules) {
  const std::map<std::string, unsigned> applied = {
      {"keep-last", rules.last},       {"keep-hourly", rules.hourly},
      {"keep-daily", rules.daily},     {"keep-weekly", rules.weekly},
      {"keep-monthly", rules.monthly}, {"keep-yearly", rules.yearly}};
  std::map<std::string, std::string> shown;
  for (const auto& line : hostkit::configurationLines(path)) shown[line.key] = line.value;
  for (const auto& [key, count] : applied) {
    const auto line = shown.find(key);
    if (line == shown.end() || line->second.empty() || line->second.size() > 6) continue;
    if (line->second.find_first_not_of("0123456789") != std::string::npos) continue;
    expect(count == static_cast<unsigned>(halyard::leadingInteger(line->second)),
           "helmsman shows what the engine applies");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const halyard::fuzz::ScratchFolder folder;
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const std::string path = folder.write("conf", text);
  snapwheel::CommandOptions options;
  const int status = parse(path, options);
  expect(status == hostkit::kSuccess || status == hostkit::kUsageError,
         "a file is taken or refused");
  if (status == hostkit::kSuccess && text.find('[') == std::string_view::npos) {
    compareRules(path, options.rules);
  }
  return 0;
}
