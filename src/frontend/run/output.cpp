// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/run/output.h"

#include <cstdarg>
#include <cstdio>

#include "frontend/run/run_state.h"
#include "host/log/system_log.h"

namespace halyard {

namespace {

std::string formatted(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length <= 0) return {};
  std::string text(static_cast<std::size_t>(length), '\0');
  (void)std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

}  // namespace

void printText(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  (void)std::vprintf(format, arguments);
  va_end(arguments);
}

void printBytes(std::string_view bytes) {
  (void)std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

void debugLine(const char* label, const MaybeString& value) {
  if (runState().debug) printText("%s := %s\n", label, orNull(value));
}

void debugLine(const char* label, const std::string& value) { debugLine(label, value.c_str()); }

void debugLine(const char* label, const char* value) {
  if (runState().debug) printText("%s := %s\n", label, value);
}

void debugLine(const char* label, long value) {
  if (runState().debug) printText("%s := %ld\n", label, value);
}

void debugText(const char* format, ...) {
  if (!runState().debug) return;
  std::va_list arguments;
  va_start(arguments, format);
  (void)std::vprintf(format, arguments);
  va_end(arguments);
}

void verboseLine(const char* label, const MaybeString& value) {
  if (runState().verbose) printText("%s := %s\n", label, orNull(value));
}

void platformLogText(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  host::platformLog(formatted(format, arguments));
  va_end(arguments);
}

void debugPlatformLog(const char* format, ...) {
  if (!runState().debug) return;
  std::va_list arguments;
  va_start(arguments, format);
  host::platformLog(formatted(format, arguments));
  va_end(arguments);
}

void debugPlatformEntry(const std::string& name) {
  debugPlatformLog("nextPath := %s", name.c_str());
}

std::string listText(const std::vector<std::string>& list) {
  std::string text = "(\n";
  for (const std::string& entry : list) text += "    " + entry + "\n";
  return text + ")";
}

void dump(std::string_view text) {
  (void)std::fwrite(text.data(), 1, text.size(), stderr);
  (void)std::fputc('\n', stderr);
}

void dump(const std::vector<std::string>& list) { dump(listText(list)); }

void debugDump(const MaybeString& text) {
  if (runState().debug) dump(std::string_view(text ? *text : "(null)"));
}

void debugDump(const std::vector<std::string>& list) {
  if (runState().debug) dump(list);
}

}  // namespace halyard
