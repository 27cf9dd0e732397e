// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "config/plugin_call.h"

#include <utility>

#include "frontend/run/run_state.h"

namespace halyard {

PluginCall::PluginCall(MaybeString program, const std::vector<MaybeString>& words)
    : executable(std::move(program)), arguments(host::argumentsUpToAbsent(words)) {}

void PluginCall::addOption(const MaybeString& value) {
  if (value) arguments.insert(arguments.end(), {"-opt", *value});
}

host::TaskResult PluginCall::run(const host::OutputSink& output) const {
  return host::RunTask(executable, arguments, {.output = output, .error = host::dropOutput});
}

host::TaskResult PluginCall::runUnheard() const {
  return run(runState().debug ? host::OutputSink() : host::dropOutput);
}

}  // namespace halyard
