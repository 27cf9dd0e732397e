// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/manifest.h"

#include "host/files/files.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

namespace {

constexpr std::size_t kManifestLimit = std::size_t{4} << 20;
constexpr int kFormat = 1;
constexpr int kIndent = 2;

std::string manifestPath(const std::string& snapshotPath) {
  return snapshotPath + "/" + std::string(kRecordFolder) + "/manifest.json";
}

/// A manifest lies where users of the host may have written: no value is trusted to have its type.
template <typename Value>
void take(const nlohmann::json& object, const char* key, Value& value) {
  const auto found = object.find(key);
  if (found == object.end()) return;
  try {
    found->get_to(value);
  } catch (const nlohmann::json::exception&) {
    value = Value{};
  }
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
          {"missing", std::move(missing)}};
}

std::optional<Manifest> readManifest(const std::string& snapshotPath) {
  const auto text = host::readFile(manifestPath(snapshotPath), kManifestLimit);
  if (!text) return std::nullopt;
  const auto object = nlohmann::json::parse(*text, nullptr, false);
  int format = 0;
  if (object.is_object()) take(object, "format", format);
  if (format != kFormat) return std::nullopt;

  Manifest manifest;
  take(object, "computer", manifest.computer);
  take(object, "volume", manifest.volume);
  take(object, "source", manifest.source);
  take(object, "started", manifest.started);
  take(object, "finished", manifest.finished);
  take(object, "reference", manifest.reference);
  take(object, "boot", manifest.boot);
  take(object, "complete", manifest.complete);
  take(object, "items", manifest.items);
  take(object, "copied", manifest.copied);
  take(object, "copiedBytes", manifest.copiedBytes);
  take(object, "linked", manifest.linked);
  take(object, "linkedBytes", manifest.linkedBytes);
  take(object, "missingCount", manifest.missingCount);
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
