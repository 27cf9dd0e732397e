// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "frontend/run/progress_log.h"

#include <string_view>

#include "frontend/run/run_state.h"
#include "host/log/clock.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard {

namespace {

/// Kept: the byte count of a record is its character count, so one with letters outside ASCII
/// loses its last bytes.
void append(const host::AppendFile& file, std::string_view record) {
  file.append(record.substr(0, characterCount(record)));
}

}  // namespace

ProgressLog ProgressLog::open() {
  ProgressLog log;
  log.file_ = host::AppendFile(paths::kProgressLog);
  return log;
}

void ProgressLog::step(const std::string& message) const {
  text(host::currentDateText() + "\n" + texts::kProgressStart + message + "\n");
}

void ProgressLog::step(const MaybeString& service, const std::string& message) const {
  step(std::string(orNull(service)) + texts::kSeparator + message);
}

void ProgressLog::error(const std::string& message) const {
  append(file_, host::currentDateText() + "\n" + texts::kErrorStart + message + "\n");
}

void ProgressLog::text(const std::string& record) const {
  if (runState().progress) append(file_, record);
}

}  // namespace halyard
