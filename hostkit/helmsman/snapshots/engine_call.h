// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A command that the snapshot engine carries out.
#pragma once

#include <string>
#include <vector>

namespace halyard::hostkit {

enum class AnswerAs { text, json };

/// Runs the engine, which waits as long as this process still does, and passes on its answer and
/// what it says. As JSON it is asked for that, and an answer that is none is a failure.
///
/// Returns: its exit status; failure when it could not be run.
int callEngine(std::vector<std::string> words, AnswerAs form = AnswerAs::text);

}  // namespace halyard::hostkit
