// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What helmsman keeps of runs and restores, and what plug-ins and Halyard tell it: a record that is
// read is written again and then reads the same.
#include <cstdint>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/json_file.h"
#include "expect.h"
#include "helmsman/restore/restore_trace.h"
#include "helmsman/run/restore_record.h"
#include "helmsman/run/run_judge.h"
#include "helmsman/run/run_record.h"

using halyard::fuzz::expect;
using nlohmann::json;
namespace hostkit = halyard::hostkit;

namespace {

/// As it is kept: bytes that are no UTF-8 are replaced.
json kept(const json& document) {
  return json::parse(document.dump(-1, ' ', false, json::error_handler_t::replace));
}

void readRecords(const json& document) {
  if (const auto record = hostkit::recordFrom(document)) {
    const json first = kept(hostkit::recordJson(*record));
    const auto again = hostkit::recordFrom(first);
    expect(again && kept(hostkit::recordJson(*again)) == first, "a run reads as it was kept");
  }
  if (const auto record = hostkit::restoreRecordFrom(document)) {
    const json first = kept(hostkit::restoreRecordJson(*record));
    const auto again = hostkit::restoreRecordFrom(first);
    expect(again && kept(hostkit::restoreRecordJson(*again)) == first,
           "a restore reads as it was kept");
  }
}

void readTexts(std::string_view text) {
  const auto journal = hostkit::parseJournal(text);
  for (const std::string& path : journal.aside) expect(path.starts_with('/'), "a path is absolute");
  for (const std::string& path : journal.made) expect(path.starts_with('/'), "a path is absolute");
  (void)hostkit::journalsOf(text);
  hostkit::RunJudge judge({});
  for (const std::string_view line : halyard::splitAt(text, '\n')) {
    (void)hostkit::parseProgressLine(line);
    judge.outputLine(line);
    judge.errorLine(line);
    judge.progressLine(line);
  }
  (void)judge.results([](const auto&...) { return std::nullopt; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const json document = hostkit::parseJson(text);
  if (document.is_discarded()) {
    readTexts(text);
  } else {
    readRecords(document);
  }
  return 0;
}
