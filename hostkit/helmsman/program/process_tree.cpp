// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/program/process_tree.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <ctime>
#include <fstream>
#include <set>
#include <sstream>

#include "base/text.h"
#include "host/files/files.h"

namespace halyard::hostkit {

namespace {

// Of what follows the name, counted from 0.
enum Field { kState, kParent, kUserTicks = 11, kChildTicksEnd = 14, kStartTime = 19, kFieldCount };

bool isNumber(std::string_view name) {
  return !name.empty() && name.find_first_not_of("0123456789") == std::string_view::npos;
}

// Files of /proc have no size, so that they are read by stream.
std::string procFile(int process, const char* name) {
  std::ifstream file("/proc/" + std::to_string(process) + "/" + name, std::ios::binary);
  std::ostringstream text;
  if (file) text << file.rdbuf();
  return text.str();
}

template <typename Number>
bool toNumber(std::string_view text, Number& number) {
  return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc{};
}

}  // namespace

std::optional<ProcessEntry> parseProcessEntry(std::string_view text) {
  ProcessEntry entry;
  // The name stands in brackets and may hold anything, brackets and blanks too.
  const std::size_t nameEnd = text.rfind(") ");
  if (nameEnd == std::string_view::npos || !toNumber(text, entry.process)) return std::nullopt;
  const auto fields = splitAt(text.substr(nameEnd + 2), ' ');
  if (fields.size() < kFieldCount || !toNumber(fields[kParent], entry.parent) ||
      !toNumber(fields[kStartTime], entry.startTime)) {
    return std::nullopt;
  }
  entry.hasEnded = fields[kState] == "Z" || fields[kState] == "X";
  entry.isStopped = fields[kState] == "T";
  for (std::size_t field = kUserTicks; field <= kChildTicksEnd; ++field) {
    std::int64_t ticks = 0;
    if (!toNumber(fields[field], ticks)) return std::nullopt;
    entry.ticks += static_cast<std::uint64_t>(ticks);
  }
  return entry;
}

std::optional<ProcessEntry> processEntry(int process) {
  return parseProcessEntry(procFile(process, "stat"));
}

std::vector<ProcessEntry> allProcesses() {
  std::vector<ProcessEntry> all;
  for (const std::string& name : host::listDirectory("/proc")) {
    if (!isNumber(name)) continue;
    if (const auto entry = processEntry(leadingInteger(name))) {
      all.push_back(*entry);
    }
  }
  return all;
}

std::vector<ProcessEntry> processesBelow(const std::vector<ProcessEntry>& all, int top) {
  std::set<int> known = {top};
  // A child may have a lower number than its parent, so one pass may not find all.
  for (std::size_t before = 0; before != known.size();) {
    before = known.size();
    for (const ProcessEntry& entry : all) {
      if (known.contains(entry.parent)) known.insert(entry.process);
    }
  }
  std::vector<ProcessEntry> below;
  for (const ProcessEntry& entry : all) {
    if (entry.process != top && !entry.hasEnded && known.contains(entry.process)) {
      below.push_back(entry);
    }
  }
  return below;
}

std::optional<double> secondsRun(int process) {
  constexpr double kNanosecond = 1e-9;
  const auto entry = processEntry(process);
  timespec now{};
  if (!entry || ::clock_gettime(CLOCK_BOOTTIME, &now) != 0) return std::nullopt;
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * kNanosecond -
         static_cast<double>(entry->startTime) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

std::string programOf(int process) {
  const std::string line = procFile(process, "cmdline");
  return line.substr(0, line.find('\0'));
}

std::uint64_t bytesWrittenBy(int process) {
  static constexpr std::string_view kKey = "wchar: ";
  std::uint64_t bytes = 0;
  const std::string text = procFile(process, "io");
  for (const std::string_view line : splitAt(text, '\n')) {
    if (line.starts_with(kKey)) (void)toNumber(line.substr(kKey.size()), bytes);
  }
  return bytes;
}

}  // namespace halyard::hostkit
