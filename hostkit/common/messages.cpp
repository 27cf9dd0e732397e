#include "common/messages.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

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

// One write a message, so that the lines of two processes do not run into each other.
void writeMessage(std::string_view kind, std::string_view text) {
  std::string line = programName();
  line.append(": ").append(kind).append(text).append("\n");
  (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

std::string dumped(const nlohmann::json& document, int indent) {
  return document.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

void setProgramName(std::string name) { programName() = std::move(name); }

void printError(std::string_view text) { writeMessage("", text); }

void printWarning(std::string_view text) { writeMessage("warning: ", text); }

void printNote(std::string_view text) {
  if (!notesAreOff()) writeMessage("", text);
}

void setQuiet(bool quiet) { notesAreOff() = quiet; }

void printLine(std::string_view line) {
  (void)std::fwrite(line.data(), 1, line.size(), stdout);
  (void)std::fputc('\n', stdout);
}

void printJson(const nlohmann::json& document) { printLine(dumped(document, 2)); }

void printJsonLine(const nlohmann::json& document) {
  printLine(dumped(document, -1));
  (void)std::fflush(stdout);
}

bool finishOutput() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  printError("standard output could not be written");
  return false;
}

std::string errnoText(int error) { return std::generic_category().message(error); }

}  // namespace halyard::hostkit
