// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/snapshot_pin.h"

#include <nlohmann/json.hpp>

#include "common/json_file.h"
#include "common/json_members.h"
#include "common/record_file.h"
#include "common/times.h"

namespace halyard::hostkit {

namespace {

constexpr char kPinName[] = "pin";
constexpr std::size_t kPinLimit = std::size_t{16} << 10;
constexpr int kFormat = 1;

}  // namespace

std::optional<Pin> readPin(const std::string& snapshotPath) {
  const RecordFile file = readRecordFile(snapshotPath, kPinName, kPinLimit);
  if (!file.stands) return std::nullopt;
  const nlohmann::json document = file.bytes ? parseJson(*file.bytes) : nlohmann::json();
  if (!document.is_object()) return Pin{"its pin cannot be read", ""};
  const std::string time = textOf(document, "time");
  return Pin{textOf(document, "note").substr(0, kNoteLimit), parseTime(time) ? time : ""};
}

Status writePin(const std::string& snapshotPath, const Pin& pin) {
  const nlohmann::json document = {{"format", kFormat}, {"note", pin.note}, {"time", pin.time}};
  return writeRecordFile(
      snapshotPath, kPinName,
      document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

Status removePin(const std::string& snapshotPath) {
  return removeRecordFile(snapshotPath, kPinName);
}

std::string pinText(const Pin& pin) {
  return pin.note.empty() ? "pinned" : "pinned (" + pin.note + ")";
}

nlohmann::json pinJson(const std::optional<Pin>& pin) {
  if (!pin) return nullptr;
  return {{"note", pin->note},
          {"time", pin->time.empty() ? nlohmann::json() : nlohmann::json(pin->time)}};
}

}  // namespace halyard::hostkit
