// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the program says: standard output, debug and verbose lines, dumps, the platform log.
//
// A fixed text stands once, as a literal at its only call, so that a grep for it finds the code.
// One that helmsman reads is a constant of product/run_texts.h.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/property_list.h"
#include "base/text.h"

namespace halyard {

/// printf to standard output. A failing write is ignored: output never fails a command.
void printText(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Bytes as they are, to standard output.
void printBytes(std::string_view bytes);

/// In debug mode only: "<label> := <value>" and a line feed on standard output.
void debugLine(const char* label, const MaybeString& value);
void debugLine(const char* label, const std::string& value);
void debugLine(const char* label, const char* value);
void debugLine(const char* label, long value);

/// In debug mode only: printf to standard output.
void debugText(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// In verbose mode only: "<label> := <value>" and a line feed on standard output.
void verboseLine(const char* label, const MaybeString& value);

/// printf to the platform log: standard error and the system log, never standard output.
void platformLogText(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// The same in debug mode only.
void debugPlatformLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// In debug mode only: "nextPath := <name>" to the platform log, for an entry that is looked at.
void debugPlatformEntry(const std::string& name);

/// The readable form of a list: its entries one a line, in parentheses.
std::string listText(const std::vector<std::string>& list);

/// Dumps a value to standard error, in every mode.
void dump(std::string_view text);
void dump(const std::vector<std::string>& list);
/// The same in debug mode only.
void debugDump(const MaybeString& text);
void debugDump(const std::vector<std::string>& list);

}  // namespace halyard
