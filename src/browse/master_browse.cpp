// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "browse/master_browse.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "frontend/run/run_state.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"
#include "product/service_descriptor.h"
#include "product/snapshot_metadata.h"

namespace halyard {

namespace {

/// The services that qualify, each with its browse file. Only the names are kept while the
/// descriptors are walked: the listings are read again, one at a time, when they are written, so
/// that the memory needed is that of the largest one.
class Catalogue {
 public:
  void set(const std::string& service, const std::string& browseFile) {
    const auto found = std::ranges::find(files_, service, &Entry::first);
    if (found == files_.end()) {
      files_.emplace_back(service, browseFile);
    } else {
      found->second = browseFile;
    }
  }

  /// Done when the file was written; then it was printed too.
  Status writeAndPrint(const std::string& path) const {
    const auto produce = [&](const host::PieceSink& sink) {
      DictionaryWriter writer(sink);
      for (const auto& [service, browseFile] : files_) {
        const auto root = host::readPropertyList(browseFile, kBrowseDataLimit);
        if (root) writer.entry(service, *root);
      }
      writer.finish();
    };
    return host::writeFileAndReadBack(path, produce, printBytes, host::Durability::power);
  }

 private:
  using Entry = std::pair<std::string, std::string>;
  std::vector<Entry> files_;
};

void debugShow(const std::string& text) {
  if (!runState().debug) return;
  dump(text);
  debugText("infoReturned %d\n", static_cast<int>(characterCount(text)));
  debugText("lineItems %d\n", static_cast<int>(std::ranges::count(text, '\n')) + 1);
  debugText("ret %d\n", 0);
}

void showDescriptor(const ServiceDescriptor& descriptor) {
  debugLine("tServiceName", descriptor.serviceName());
  debugLine("tRestoreBinaryPath", descriptor.text(descriptor_keys::kRestoreBinaryPath));
  debugDump(descriptor.list(descriptor_keys::kConfigurationFiles));
  debugDump(descriptor.list(descriptor_keys::kDataFiles));
}

void addListing(const MaybeString& service, Catalogue& catalogue) {
  const std::string path =
      joinPath(joinPath(paths::kMetadataFolder, service), service) + paths::kBrowseSuffix;
  printText("curServicePath := %s\n", path.c_str());
  if (!host::exists(path)) {
    printText(texts::kNoBrowseFolder, orNull(service));
    return;
  }
  const auto text = host::readFile(path, kBrowseDataLimit);
  if (!text || !isValidUtf8(*text)) return;
  debugShow(*text);
  switch (listingRoot(parsePropertyList(*text))) {
    case ListingRoot::noData:
      printText(texts::kNoListingData, orNull(service));
      return;
    case ListingRoot::unusable:
      return;
    case ListingRoot::filled:
      catalogue.set(orNull(service), path);
  }
}

/// Kept: a nested metadata folder and keys that are empty are only looked for to be shown.
void showSurroundings() {
  if (!runState().debug) return;
  const std::string nested = findSnapshotMetadataFolder(paths::kMetadataFolder, debugPlatformEntry);
  debugPlatformLog("serverMetaDataPath := %s", nested.c_str());
  forEachServiceKey([](const std::string& key) {
    if (key.empty()) debugText("%s\n", key.c_str());
    return true;
  });
}

}  // namespace

ListingRoot listingRoot(const std::optional<PropertyValue>& root) {
  if (!root) return ListingRoot::noData;
  if (const auto* const dictionary = root->asDictionary()) {
    return dictionary->empty() ? ListingRoot::noData : ListingRoot::filled;
  }
  if (const auto* const array = root->asArray()) {
    return array->empty() ? ListingRoot::noData : ListingRoot::filled;
  }
  return ListingRoot::unusable;
}

void CreateMasterBrowse() {
  const FunctionLog scope(__func__);
  verboseLine("mountedImagePath", paths::kMetadataFolder);
  debugPlatformLog("mountedImagePath := %s", paths::kMetadataFolder);
  get_Helmsman_Prefs();
  showSurroundings();
  Catalogue catalogue;
  scanServiceDescriptors({.taken = [&](const std::string& path) {
    debugLine("tStr", path);
    if (!host::exists(path)) return;
    const ServiceDescriptor descriptor = ServiceDescriptor::read(path);
    showDescriptor(descriptor);
    addListing(descriptor.serviceName(), catalogue);
  }});
  if (!catalogue.writeAndPrint(paths::kMasterBrowseFile)) printText("(null)");
}

}  // namespace halyard
