// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "browse/verify.h"

#include <cstddef>
#include <string>

#include "base/text.h"
#include "config/plugin_call.h"
#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "product/descriptor_keys.h"
#include "product/run_texts.h"
#include "product/service_descriptor.h"

namespace halyard {

namespace {

constexpr std::int32_t kNoSummary = 99;  // unknown service, or no summary line
constexpr std::string_view kSummary = texts::kFailureSummary;
constexpr std::size_t kValueColumn = 31;  // the length of kSummary and " := "

std::int32_t runVerifyPlugin(const MaybeString& image, const MaybeString& service) {
  const auto [path, descriptor] = findServiceDescriptor(service);
  const MaybeString executable = descriptor.text(descriptor_keys::kVerifyBinaryPath);
  const MaybeString log = descriptor.text(descriptor_keys::kVerifyLog);
  debugLine("serviceConfFilePath", path);
  debugLine("VerifyBinaryPath", executable);
  debugLine("ServiceName", descriptor.serviceName());
  debugLine("VerifyLog", log);
  // The folder is not tested: the plug-in runs, and reports, in any case.
  const std::string folder = joinPath(image, descriptor.serviceName());
  const PluginCall call(executable, {"-cmd", "verify", "-path", folder, "-log", log});
  return failuresReported(call.run().output);
}

}  // namespace

std::int32_t failuresReported(std::string_view output) {
  std::int32_t failures = kNoSummary;
  forEachLine(output, [&](std::string_view line) {
    if (!line.starts_with(kSummary)) return;
    // By column, not by separator: a plug-in may write ": " for " := ".
    const std::string value(afterCharacters(line, kValueColumn));
    debugLine(texts::kFailureSummary, value);
    failures = leadingInteger(value);  // A later summary line wins.
  });
  return failures;
}

std::int32_t Verify(const CommandLine& line) {
  const FunctionLog scope(__func__);
  const MaybeString image = line.option("-path");
  const MaybeString service = line.option("-service");
  verboseLine("IMAGE_PATH", image);
  verboseLine("SERVICE", service);
  get_Helmsman_Prefs();
  std::int32_t result = kNoSummary;
  if (isListedService(service)) {
    result = runVerifyPlugin(image, service);
  } else {
    printText("Service := %s, does not match a valid service for verification!\n", orNull(service));
  }
  debugLine(texts::kVerifyResult, long{result});
  return result;
}

}  // namespace halyard
