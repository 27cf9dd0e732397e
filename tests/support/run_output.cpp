// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/run_output.h"

#include <algorithm>
#include <regex>

namespace halyard::test {
namespace {

const std::string kDashes = std::string(55, '-') + "+";

}  // namespace

std::string started(std::string_view name) { return "Start " + std::string(name) + kDashes; }

std::string ended(std::string_view name) { return "End   " + std::string(name) + kDashes; }

std::vector<std::string> startedAndEnded(const std::vector<std::string>& names) {
  std::vector<std::string> lines;
  for (const std::string& name : names) {
    lines.push_back(started(name));
    lines.push_back(ended(name));
  }
  return lines;
}

std::vector<std::string> functionLines(const CommandResult& result) {
  std::vector<std::string> lines = linesOf(result.out);
  std::erase_if(lines, [](const std::string& line) { return !line.ends_with(kDashes); });
  return lines;
}

std::vector<std::string> functionSteps(const CommandResult& result) {
  std::vector<std::string> lines = functionLines(result);
  for (std::string& line : lines) line.resize(line.size() - kDashes.size());
  return lines;
}

std::vector<std::string> wholeFunctionLog(const std::vector<std::string>& ofTheCommand) {
  std::vector<std::string> lines = startedAndEnded({"IsStandardServer"});
  lines.push_back(started("Prefs"));
  for (const std::string& line : startedAndEnded({"get_Helmsman_Prefs"})) lines.push_back(line);
  lines.push_back(ended("Prefs"));
  for (const std::string& line : startedAndEnded({"ParseOptions"})) lines.push_back(line);
  lines.push_back(started("validateOptionsAndDispatch"));
  lines.insert(lines.end(), ofTheCommand.begin(), ofTheCommand.end());
  lines.push_back(ended("validateOptionsAndDispatch"));
  lines.push_back("End main()" + kDashes);
  return lines;
}

std::vector<std::string> logMessages(const CommandResult& result) {
  static const std::regex kLogLine(R"(^.* Halyard\[[0-9]+\]:? (.*)$)");
  std::vector<std::string> messages;
  for (const std::string& line : linesOf(result.err)) {
    std::smatch parts;
    if (std::regex_match(line, parts, kLogLine)) messages.push_back(parts[1]);
  }
  return messages;
}

std::vector<std::string> outputFrom(const CommandResult& result, std::string_view start) {
  std::vector<std::string> lines = linesOf(result.out);
  const auto first = std::find_if(lines.begin(), lines.end(), [start](const std::string& line) {
    return line.starts_with(start);
  });
  return {first, lines.end()};
}

}  // namespace halyard::test
