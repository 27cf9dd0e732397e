// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/messages.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "common/visible_text.h"

namespace halyard::hostkit {

namespace {

std::string& programName() {
  static std::string name = "hostkit";
  return name;
}

bool& notesAreOff() {
  static bool off = false;
  return off;
}

// What the answer in JSON needs to know of the messages before it.
struct JsonState {
  std::string errors;     // Of printError, a line each, up to a limit.
  bool answered = false;  // An answer was printed.
};

JsonState& jsonState() {
  static JsonState state;
  return state;
}

void rememberError(std::string_view text) {
  constexpr std::size_t kEnough = 4096;
  std::string& errors = jsonState().errors;
  if (errors.size() >= kEnough) return;
  if (!errors.empty()) errors += "\n";
  errors += text.substr(0, kEnough);
}

// One write a message, so that the lines of two processes do not run into each other.
void writeMessage(std::string_view kind, std::string_view text) {
  std::string line = programName();
  line.append(": ").append(kind).append(visibleText(text)).append("\n");
  (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

void writeLine(std::string_view line) {
  (void)std::fwrite(line.data(), 1, line.size(), stdout);
  (void)std::fputc('\n', stdout);
}

std::string dumped(nlohmann::json document, int indent) {
  document["format"] = kJsonFormat;
  return document.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

void setProgramName(std::string name) { programName() = std::move(name); }

void printError(std::string_view text) {
  rememberError(text);
  writeMessage("", text);
}

void printWarning(std::string_view text) { writeMessage("warning: ", text); }

void printNote(std::string_view text) {
  if (!notesAreOff()) writeMessage("", text);
}

void setQuiet(bool quiet) { notesAreOff() = quiet; }

void printLine(std::string_view line) { writeLine(visibleText(line)); }

void printJson(const nlohmann::json& document) {
  jsonState().answered = true;
  writeLine(dumped(document, 2));
}

void printJsonLine(const nlohmann::json& document, JsonLine line) {
  if (line == JsonLine::last) jsonState().answered = true;
  writeLine(dumped(document, -1));
  (void)std::fflush(stdout);
}

void printJsonError(int status) {
  if (jsonState().answered) return;
  const std::string& errors = jsonState().errors;
  const nlohmann::json error = {{"message", errors.empty() ? "the reason is not known" : errors},
                                {"status", status}};
  printJsonLine({{"error", error}}, JsonLine::last);
}

bool finishOutput() {
  static bool told = false;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  if (!told) printError("standard output could not be written");
  told = true;
  return false;
}

std::string errnoText(int error) { return std::generic_category().message(error); }

}  // namespace halyard::hostkit
