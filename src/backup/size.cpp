// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "backup/size.h"

#include <algorithm>

#include "config/plugin_call.h"
#include "config/preferences.h"
#include "config/validation.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/progress_log.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"
#include "product/service_descriptor.h"

namespace halyard {

namespace {

constexpr std::string_view kTotalPrefix = texts::kSizeTotal;
constexpr std::int64_t kBytesPerKib = 1024;

/// Kept: names fold case and the flag must be exactly 1; the backup run itself is less strict.
bool isMeasured(const MaybeString& service, const PreferenceRecord& preferences) {
  if (!service) return false;
  const auto* const known = std::ranges::find_if(
      kKnownServices, [&](std::string_view name) { return equalsIgnoringCase(name, *service); });
  if (known == kKnownServices.end()) return false;
  const auto index = static_cast<std::size_t>(known - kKnownServices.begin());
  return preferences.serviceFlag(index) == 1;
}

SizeAnswer askForSize(const std::string& executable) {
  SizeAnswer answer(runState().debug ? SizeAnswer::Keep::everyValue : SizeAnswer::Keep::sum);
  PluginCall(executable, {"-cmd", "size", "-opt", "all"}).run([&](std::string_view piece) {
    answer.take(piece);
  });
  answer.finish();
  return answer;
}

/// One pass over the descriptors.
class SizeEstimate {
 public:
  explicit SizeEstimate(const PreferenceRecord& preferences) : preferences_(preferences) {}

  void takeDescriptor(const std::string& path) {
    if (host::exists(path)) {
      descriptor_ = ServiceDescriptor::read(path);
      service_ = descriptor_.serviceName();
      debugLine("ServiceName", service_);
    }  // Kept: otherwise the previous entry stays in force.
    if (!isMeasured(service_, preferences_)) {
      debugText("Skipping size calculation for ServiceName := %s because it is disabled.\n",
                orNull(service_));
      return;
    }
    progress_.step(service_, texts::kSizeBegun);
    measure();
    progress_.step(service_, texts::kSizeDone);
  }

  std::int64_t total() const { return total_; }

 private:
  void measure() {
    const MaybeString executable = descriptor_.text(descriptor_keys::kBackupBinaryPath);
    debugLine("ServiceBinary", executable);
    // Kept: without an executable, the answer of the service before is added again.
    if (executable && host::isExecutableFile(*executable)) answer_ = askForSize(*executable);
    for (std::int64_t shown = total_; const std::int32_t value : answer_.values()) {
      shown += value;
      debugLine("grandTotal", long{shown});
    }
    total_ += answer_.sum();
  }

  const PreferenceRecord& preferences_;
  ProgressLog progress_ = ProgressLog::open();
  ServiceDescriptor descriptor_;
  MaybeString service_ = "";
  SizeAnswer answer_ = SizeAnswer(SizeAnswer::Keep::sum);
  std::int64_t total_ = 0;
};

/// The second column of the disk-usage line of a volume, as text; empty when the pipeline fails.
std::string volumeSizeText(const MaybeString& volume) {
  const std::string name = orNull(volume);
  const std::vector<std::string> arguments = {"-c", std::string(paths::kDf) + " -k " + name +
                                                        " | " + paths::kGrep + " " + name + " | " +
                                                        paths::kAwk + " '{ print $2 }'"};
  debugPlatformLog("args := %s", listText(arguments).c_str());
  return host::RunTask(paths::kShell, arguments, {.error = host::dropOutput, .plainLocale = true})
      .output;
}

void measureIntoText(const MaybeString& volume) {
  sizeMeasurements().measuredSize = trimLineFeeds(volumeSizeText(volume));
  debugLine("SPARSE_IMAGE_SIZE", sizeMeasurements().measuredSize);
}

}  // namespace

void SizeAnswer::take(std::string_view piece) {
  for (;;) {
    const std::size_t end = piece.find('\n');
    takePartOfLine(piece.substr(0, end));
    if (end == std::string_view::npos) return;
    finishLine();
    piece.remove_prefix(end + 1);
  }
}

void SizeAnswer::takePartOfLine(std::string_view part) {
  if (!counts_) return;
  const std::string_view expected =
      kTotalPrefix.substr(matched_, std::min(part.size(), kTotalPrefix.size() - matched_));
  if (!part.starts_with(expected)) {
    counts_ = false;
    return;
  }
  matched_ += expected.size();
  (void)number_.take(part.substr(expected.size()));  // The rest of the line is passed over anyway.
}

void SizeAnswer::finishLine() {
  if (counts_ && matched_ == kTotalPrefix.size()) {
    sum_ += number_.value();
    if (keep_ == Keep::everyValue) values_.push_back(number_.value());
  }
  matched_ = 0;
  counts_ = true;
  number_ = IntegerReader();
}

void SizeAnswer::finish() { finishLine(); }

SizeMeasurements& sizeMeasurements() {
  static SizeMeasurements measurements;
  return measurements;
}

std::int64_t SizeRequired(bool print) {
  const FunctionLog scope(__func__);
  validate_LogPaths();
  verboseLine("HALYARD_CONF", paths::kConfigurationFolder);
  SizeEstimate estimate(runState().preferences);
  const auto showName = [](const std::string& name) { debugText("%s\n", name.c_str()); };
  scanServiceDescriptors(
      {.shortName = showName, .longName = showName, .taken = [&](const std::string& path) {
         estimate.takeDescriptor(path);
       }});
  if (print) printText("%s%ld\n", texts::kSizeTotal, long{estimate.total() / kBytesPerKib});
  return estimate.total();
}

std::int32_t haveRoomForBackup(const CommandLine& line) {
  const FunctionLog scope(__func__);
  SizeMeasurements& measured = sizeMeasurements();
  const std::int64_t size = SizeRequired(false);
  measured.totalRequired = size;
  debugLine("sourceVolume", line.option("-source"));
  debugLine("totalRequired", long{measured.totalRequired});
  measured.imagesVolumeSize = 0;
  get_Images_Volume_Size();
  debugLine("We have enough room for a backup.",
            long{measured.imagesVolumeSize - size - measured.totalRequired});
  debugLine("size", long{measured.totalRequired});
  debugLine("slush", long{size});
  return 1;
}

void get_Images_Volume_Size() {
  const FunctionLog scope(__func__);
  get_Helmsman_Prefs();
  const std::int64_t blocks = leadingInteger(volumeSizeText("/"));
  sizeMeasurements().imagesVolumeSize = blocks * kBytesPerKib;
  debugLine("IMAGE_VOLUME_FREE_SPACE", long{sizeMeasurements().imagesVolumeSize});
}

void get_Boot_Volume_Size() {
  const FunctionLog scope(__func__);
  measureIntoText("/");
}

void get_Destination_Volume_Size() {
  const FunctionLog scope(__func__);
  measureIntoText(get_Helmsman_Prefs().backupDestination);
}

}  // namespace halyard
