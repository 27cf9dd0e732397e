// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/manifest.h"

#include "common/json_file.h"
#include "common/json_members.h"
#include "host/files/files.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

using hostkit::countOf;
using hostkit::flagOf;
using hostkit::integerOf;
using hostkit::textOf;

namespace {

constexpr std::size_t kManifestLimit = std::size_t{4} << 20;
constexpr int kFormat = 2;
constexpr int kOldestFormat = 1;  // Knows no torn items.
constexpr int kIndent = 2;

std::string manifestPath(const std::string& snapshotPath) {
  return snapshotPath + "/" + std::string(kRecordFolder) + "/manifest.json";
}

}  // namespace

nlohmann::json toJson(const Manifest& manifest) {
  nlohmann::json missing = nlohmann::json::array();
  for (const MissingItem& item : manifest.missing) {
    missing.push_back({{"path", item.path}, {"errno", item.error}});
  }
  return {{"format", kFormat},
          {"computer", manifest.computer},
          {"volume", manifest.volume},
          {"source", manifest.source},
          {"started", manifest.started},
          {"finished", manifest.finished},
          {"reference", manifest.reference},
          {"boot", manifest.boot},
          {"complete", manifest.complete},
          {"items", manifest.items},
          {"copied", manifest.copied},
          {"copiedBytes", manifest.copiedBytes},
          {"linked", manifest.linked},
          {"linkedBytes", manifest.linkedBytes},
          {"missingCount", manifest.missingCount},
          {"missing", std::move(missing)},
          {"tornCount", manifest.tornCount},
          {"torn", manifest.torn},
          {"unfinishedBackup", manifest.unfinishedBackup}};
}

std::optional<Manifest> readManifest(const std::string& snapshotPath) {
  const nlohmann::json object = hostkit::readJsonFile(manifestPath(snapshotPath), kManifestLimit);
  const std::int64_t format = integerOf(object, "format").value_or(0);
  if (format < kOldestFormat || format > kFormat) return std::nullopt;

  Manifest manifest;
  manifest.computer = textOf(object, "computer");
  manifest.volume = textOf(object, "volume");
  manifest.source = textOf(object, "source");
  manifest.started = textOf(object, "started");
  manifest.finished = textOf(object, "finished");
  manifest.reference = textOf(object, "reference");
  manifest.boot = textOf(object, "boot");
  manifest.complete = flagOf(object, "complete");
  manifest.items = countOf(object, "items").value_or(0);
  manifest.copied = countOf(object, "copied").value_or(0);
  manifest.copiedBytes = countOf(object, "copiedBytes").value_or(0);
  manifest.linked = countOf(object, "linked").value_or(0);
  manifest.linkedBytes = countOf(object, "linkedBytes").value_or(0);
  manifest.missingCount = countOf(object, "missingCount").value_or(0);
  manifest.tornCount = countOf(object, "tornCount").value_or(0);
  manifest.unfinishedBackup = flagOf(object, "unfinishedBackup");
  const bool plainName = !manifest.volume.empty() && manifest.volume.front() != '.' &&
                         manifest.volume.find('/') == std::string::npos;
  if (!plainName) return std::nullopt;
  return manifest;
}

Status writeManifest(const std::string& snapshotPath, const Manifest& manifest) {
  const std::string text =
      toJson(manifest).dump(kIndent, ' ', false, nlohmann::json::error_handler_t::replace);
  return host::writeFile(manifestPath(snapshotPath), text + "\n");
}

}  // namespace halyard::snapwheel
