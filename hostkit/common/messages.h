// Messages for people: standard error, with the program's name in front. Results go to standard
// output; nothing else does.
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

/// The document indented by two, and a line feed, on standard output. Bytes that are no UTF-8
/// show as U+FFFD.
void printJson(const nlohmann::json& document);
/// The document on one line, flushed, for readers that follow a run.
void printJsonLine(const nlohmann::json& document);

/// Flushes standard output; false, and a message, when not everything could be written (a full
/// disk, a closed pipe), so that no truncated answer passes for a good one.
bool finishOutput();

/// The text of an errno value.
std::string errnoText(int error);

}  // namespace halyard::hostkit
