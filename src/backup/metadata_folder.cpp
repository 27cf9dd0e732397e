// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "backup/metadata_folder.h"

#include <string_view>

#include "base/property_list.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "host/files/sync.h"
#include "host/process/task.h"
#include "host/tree/move_item.h"
#include "product/paths.h"

namespace halyard {

namespace {

constexpr const char* kVolumeIdentifierKey = "VolumeUUID";

MaybeString recordedVolume() {
  const auto report =
      host::readDictionary(joinPath(paths::kMetadataFolder, paths::kSourceDiskInfoName));
  return report ? report->text(kVolumeIdentifierKey) : std::nullopt;
}

MaybeString bootedVolume() {
  const std::string answer = host::RunTask(paths::kVolumeTool, {"info", "-plist", "/"},
                                           {.error = host::dropOutput, .plainLocale = true})
                                 .output;
  // When the copy cannot be written the answer itself serves: nobody can have a restore refused,
  // and the metadata folder deleted, by planting a folder under the copy's name.
  std::string copy;
  const auto produce = [&](const host::PieceSink& sink) { sink(answer); };
  const auto collect = [&](std::string_view piece) { copy += piece; };
  if (!host::writeFileAndReadBack(paths::kDiskInfoCopy, produce, collect)) copy = answer;
  if (copy.size() > kPreferenceLimit) return std::nullopt;
  const auto report = parseDictionary(copy);
  return report ? report->text(kVolumeIdentifierKey) : std::nullopt;
}

}  // namespace

bool removeMetadataFolder(const std::string& path) {
  if (!host::isSymbolicLink(path)) {
    (void)host::removeItem(joinPath(path, paths::kSignatureName));
    (void)host::syncFolder(path);  // Gone from the disk as well before anything else is.
  }
  const bool removed = host::removeItem(path);
  (void)host::syncFolderOf(path);
  return removed;
}

void PostBackupComplete() {
  const FunctionLog scope(__func__);
  const std::string path = std::string("/") + paths::kMetadataFolder;  // Kept: doubled slash.
  if (host::isDirectory(path)) (void)removeMetadataFolder(path);       // The next backup resets it.
}

std::int32_t isBootedSystemsUUIDDiffentThanSource() {
  // Kept: the name's spelling and the single blank of its end line.
  const FunctionLog scope(__func__, FunctionLog::Blanks::one);
  const MaybeString recorded = recordedVolume();
  const MaybeString booted = bootedVolume();
  const bool differs = recorded && booted && *recorded != *booted;
  debugDump(recorded);
  debugDump(booted);
  debugText("%s\n", differs ? "Different." : "Not Different!");
  return differs ? 1 : 0;
}

std::string prepPaths(const std::string& src, const std::string& dest) {
  const FunctionLog scope(__func__);
  debugLine("src", src);
  debugLine("dest", dest);
  const std::string root = dest.ends_with('/') ? dest.substr(0, dest.size() - 1) : dest;
  std::string prefix = "/";
  for (const std::string& component : pathComponents(src)) {
    if (component == "/") continue;
    const std::string live = prefix + component;
    if (host::isDirectory(live)) {
      debugLine("creating folder", root + live);
      (void)host::createDirectory(root + live);  // It may be there from an earlier copy.
    }
    prefix = live + "/";
  }
  std::string copy = root + prefix;
  if (host::isDirectory(copy)) {
    debugLine("deleting folder", copy);
    (void)host::removeItem(copy);
  }
  return copy;
}

}  // namespace halyard
