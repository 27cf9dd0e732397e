// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/run/function_log.h"

#include <utility>

#include "frontend/run/output.h"
#include "frontend/run/run_state.h"

namespace halyard {

namespace {
constexpr const char* kRule = "-------------------------------------------------------+";
}

FunctionLog::FunctionLog(std::string name, Blanks blanks)
    : name_(std::move(name)), blanks_(blanks) {
  if (runState().functionLog) printText("Start %s%s\n", name_.c_str(), kRule);
}

FunctionLog::~FunctionLog() {
  if (dropped_ || !runState().functionLog) return;
  printText("End%s%s%s\n", blanks_ == Blanks::one ? " " : "   ", name_.c_str(), kRule);
}

}  // namespace halyard
