// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/system_calls.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

namespace halyard::test {
namespace fs = std::filesystem;
namespace {

constexpr const char* kStrace = "/usr/bin/strace";

bool matches(const std::string& call, const std::string& pattern) {
  return ::fnmatch(pattern.c_str(), call.c_str(), 0) == 0;
}

/// The first call at or after `from` that matches; the number of calls when there is none.
std::size_t firstMatch(const SystemCalls& calls, const std::string& pattern, std::size_t from) {
  const auto begin = calls.begin() + static_cast<std::ptrdiff_t>(std::min(from, calls.size()));
  const auto found = std::find_if(begin, calls.end(),
                                  [&](const std::string& call) { return matches(call, pattern); });
  return static_cast<std::size_t>(found - calls.begin());
}

void replaceAll(std::string& text, const std::string& what, const std::string& with) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
}

/// A line of the trace without its process: "<process> <call>".
struct TraceLine {
  std::string process;
  std::string text;
};

TraceLine splitLine(const std::string& line) {
  const std::size_t blank = line.find(' ');
  const std::size_t start = line.find_first_not_of(' ', blank);
  if (blank == std::string::npos || start == std::string::npos) return {};
  return {line.substr(0, blank), line.substr(start)};
}

/// Puts the two halves of a call together that another process's call interrupted.
class Joiner {
 public:
  /// The whole call; empty while its end is still to come.
  std::string take(const TraceLine& line) {
    static const std::string kStart = " <unfinished ...>";
    static const std::string kEnd = " resumed>";
    if (line.text.ends_with(kStart)) {
      begun_[line.process] = line.text.substr(0, line.text.size() - kStart.size());
      return {};
    }
    const std::size_t end = line.text.find(kEnd);
    if (!line.text.starts_with("<... ") || end == std::string::npos) return line.text;
    return begun_[line.process] + line.text.substr(end + kEnd.size());
  }

 private:
  std::map<std::string, std::string> begun_;
};

bool succeeded(const std::string& call) {
  const std::size_t equals = call.rfind(" = ");
  return equals != std::string::npos && call.compare(equals, 4, " = -") != 0 &&
         call.compare(equals, 4, " = ?") != 0;
}

SystemCalls readTrace(const std::string& file, const std::string& folder) {
  SystemCalls calls;
  Joiner joiner;
  std::ifstream trace(file);
  for (std::string line; std::getline(trace, line);) {
    std::string call = joiner.take(splitLine(line));
    if (!succeeded(call)) continue;
    replaceAll(call, "<" + folder + ">", "</>");
    replaceAll(call, "<" + folder + "/", "</");
    // The blanks before the result only align it.
    while (call.find("  = ") != std::string::npos) call.erase(call.find("  = "), 1);
    calls.push_back(std::move(call));
  }
  return calls;
}

/// A rename to a path, by its folder's descriptor: the folder and the two names.
struct Rename {
  std::size_t at = 0;
  std::string temporary;
};

std::vector<Rename> renamesTo(const SystemCalls& calls, const std::string& folder,
                              const std::string& name) {
  std::vector<Rename> renames;
  const std::string pattern =
      "renameat*<" + folder + ">, \"*\", *<" + folder + ">, \"" + name + "\"*";
  for (std::size_t at = firstMatch(calls, pattern, 0); at < calls.size();
       at = firstMatch(calls, pattern, at + 1)) {
    const std::size_t quote = calls[at].find('"');
    const std::size_t end = calls[at].find('"', quote + 1);
    renames.push_back({at, calls[at].substr(quote + 1, end - quote - 1)});
  }
  return renames;
}

testing::AssertionResult failure(const SystemCalls& calls, const std::string& what) {
  return testing::AssertionFailure() << what << "\nThe calls were:\n" << textOf(calls);
}

}  // namespace

std::string whyUntraceable() {
  if (::access(kStrace, X_OK) != 0) return "strace is not installed";
  if (::geteuid() != 0) return "tracing a program in a root needs root";
  return {};
}

TracedRun traced(const PrivateRoot& root, const std::string& program,
                 const std::vector<std::string>& words) {
  const std::string folder = root.path("");
  RunOptions options;
  options.traceFile = folder + ".trace";
  options.argv0 = fs::path(program).filename();
  TracedRun run;
  // No leak check: it traces the process itself, which has its tracer already.
  run.result =
      root.runProgram(program, words, {{"ASAN_OPTIONS", "detect_leaks=0:exitcode=86"}}, options);
  run.calls = readTrace(options.traceFile, folder);
  fs::remove(options.traceFile);
  return run;
}

testing::AssertionResult inOrder(const SystemCalls& calls,
                                 const std::vector<std::string>& patterns) {
  std::size_t from = 0;
  for (const std::string& pattern : patterns) {
    const std::size_t found = firstMatch(calls, pattern, from);
    if (found == calls.size()) {
      return failure(calls,
                     "no call like " + pattern + (from == 0 ? "" : " after " + calls[from - 1]));
    }
    from = found + 1;
  }
  return testing::AssertionSuccess();
}

testing::AssertionResult isReplacedDurably(const SystemCalls& calls, const std::string& path) {
  const std::string folder = fs::path(path).parent_path();
  const std::string name = fs::path(path).filename();
  const std::vector<Rename> renames = renamesTo(calls, folder, name);
  if (renames.empty()) return failure(calls, path + " was not replaced");
  for (const Rename& rename : renames) {
    const std::string temporary = "<" + (folder == "/" ? "" : folder) + "/" + rename.temporary;
    const std::size_t synced = firstMatch(calls, "fsync(*" + temporary + ">) = 0", 0);
    if (synced > rename.at) return failure(calls, path + " was renamed before it was synced");
    const std::size_t changed = firstMatch(calls, "*(*" + temporary + ">, *", synced + 1);
    if (changed < rename.at) return failure(calls, path + " was changed after it was synced");
    const std::size_t named = firstMatch(calls, "fsync(*<" + folder + ">) = 0", rename.at);
    if (named == calls.size()) return failure(calls, "the new name of " + path + " is not synced");
  }
  for (const char* change : {"*chmod*(*", "*chown*(*"}) {
    const std::size_t later = firstMatch(calls, change + path + "*", renames.back().at + 1);
    if (later < calls.size()) return failure(calls, path + " was changed after it was published");
  }
  return testing::AssertionSuccess();
}

std::size_t countOf(const SystemCalls& calls, const std::string& pattern) {
  return static_cast<std::size_t>(std::count_if(
      calls.begin(), calls.end(), [&](const std::string& call) { return matches(call, pattern); }));
}

std::string textOf(const SystemCalls& calls) {
  std::string text;
  for (const std::string& call : calls) text += "  " + call + "\n";
  return text;
}

}  // namespace halyard::test
