// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Messages for people: standard error, with the program's name in front. Results go to standard
// output; nothing else does. What a terminal must not be given is escaped (see visibleText).
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace halyard::hostkit {

/// The name that messages begin with; set once by main().
void setProgramName(std::string name);

/// "NAME: text" on standard error.
void printError(std::string_view text);
/// "NAME: warning: text" on standard error.
void printWarning(std::string_view text);
/// "NAME: text" on standard error, unless notes are off (see setQuiet).
void printNote(std::string_view text);

/// Turns notes off; errors and warnings stay.
void setQuiet(bool quiet);

/// One line of output, with a line feed, on standard output. Errors of the stream are seen by
/// finishOutput.
void printLine(std::string_view line);

/// Stands as "format" in every JSON object that is printed; grows when a reader of the old one
/// would go wrong.
inline constexpr int kJsonFormat = 1;

/// The answer of a command: the object (no array, no bare value) indented by two, and a line feed,
/// on standard output. Bytes that are no UTF-8 show as U+FFFD.
void printJson(const nlohmann::json& document);

enum class JsonLine { more, last };
/// The object on one line, flushed, for readers that follow a run. The last line is the answer.
void printJsonLine(const nlohmann::json& document, JsonLine line = JsonLine::more);

/// In place of an answer, unless there was one: {"error": {"message": ..., "status": N}} on one
/// line; the message is what printError said so far.
void printJsonError(int status);

/// Flushes standard output; false, and a message, when not everything could be written (a full
/// disk, a closed pipe), so that no truncated answer passes for a good one. Says it once.
bool finishOutput();

/// The text of an errno value.
std::string errnoText(int error);

}  // namespace halyard::hostkit
