// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "browse/browse.h"

#include <string>
#include <utility>

#include "base/property_list.h"
#include "browse/master_browse.h"
#include "config/plugin_call.h"
#include "config/preferences.h"
#include "frontend/run/function_log.h"
#include "frontend/run/output.h"
#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"
#include "product/service_descriptor.h"
#include "product/snapshot_metadata.h"

namespace halyard {

namespace {

/// Whether the snapshot, or without a metadata folder the root of the running system, holds a
/// folder of the service; prints the warning when not.
bool hasServiceFolder(const std::string& folder, const MaybeString& service) {
  if (host::exists(folder)) return true;
  printText(texts::kNoBrowseFolder, orNull(service));
  return false;
}

void addAnswer(const std::string& descriptorPath, const std::string& metadataFolder,
               PropertyDictionary& answers) {
  if (!host::exists(descriptorPath)) return;
  const ServiceDescriptor descriptor = ServiceDescriptor::read(descriptorPath);
  const MaybeString service = descriptor.serviceName();
  const MaybeString executable = descriptor.text(descriptor_keys::kRestoreBinaryPath);
  debugLine("tServiceName", service);
  debugLine("tRestoreBinaryPath", executable);
  debugDump(descriptor.list(descriptor_keys::kConfigurationFiles));
  debugDump(descriptor.list(descriptor_keys::kDataFiles));
  const std::string folder = joinPath(metadataFolder, service);
  if (!hasServiceFolder(folder, service)) return;
  const PluginCall call(executable, {"-cmd", "browse", "-path", folder});
  debugDump(call.arguments);
  std::string answer = call.run().output;
  auto root = parsePropertyList(answer);
  answer = std::string();  // A huge answer is not kept twice.
  switch (listingRoot(root)) {
    case ListingRoot::noData:
      printText(texts::kNoBrowseData, orNull(service));
      return;
    case ListingRoot::unusable:
      return;
    case ListingRoot::filled:
      answers.set(orNull(service), std::move(*root));
  }
}

void printThroughTemporaryFile(const PropertyDictionary& answers) {
  const auto produce = [&](const host::PieceSink& sink) {
    DictionaryWriter writer(sink);
    for (const auto& [service, root] : answers) writer.entry(service, root);
    writer.finish();
  };
  if (!host::writeFileAndReadBack(paths::kBrowseTemporaryFile, produce, printBytes)) {
    printText("(null)");
  }
  (void)host::removeItem(paths::kBrowseTemporaryFile);  // Another run replaces a leftover.
}

void browseAllServices(const std::string& metadataFolder) {
  PropertyDictionary answers;
  scanServiceDescriptors(
      {.taken = [&](const std::string& path) { addAnswer(path, metadataFolder, answers); }});
  printThroughTemporaryFile(answers);
}

void browseOneService(const std::string& service, const std::string& metadataFolder,
                      const MaybeString& requested) {
  const auto [path, descriptor] = findServiceDescriptor(service);
  const MaybeString executable = descriptor.text(descriptor_keys::kRestoreBinaryPath);
  const MaybeString serviceName = descriptor.serviceName();
  debugLine("serviceConfFilePath", path);
  debugLine("RestoreBinaryPath", executable);
  debugLine("BrowseCMD",
            descriptor.entry(descriptor_keys::kRestoreActions, descriptor_keys::kBrowse));
  debugLine("ServiceName", serviceName);
  const std::string folder = joinPath(metadataFolder, serviceName);
  if (!hasServiceFolder(folder, serviceName)) return;
  PluginCall call(executable, {"-cmd", "browse", "-path", folder, "-log",
                               descriptor.text(descriptor_keys::kRestoreLog)});
  call.addOption(requested);
  // Every line with its line feed, the empty one after the last included: the answer as it stands
  // and one line feed more.
  call.run(printBytes);
  printText("\n");
}

}  // namespace

void Browse(const CommandLine& line) {
  const FunctionLog scope(__func__);
  const std::string image = line.option("-path").value_or("");
  const MaybeString service = line.option("-service");
  verboseLine("mountedImagePath", image);
  verboseLine("service", service);
  get_Helmsman_Prefs();
  const std::string metadataFolder = findSnapshotMetadataFolder(image);
  debugPlatformLog("serverMetaDataPath := %s", metadataFolder.c_str());
  const bool known = isListedService(service);
  if (service && equalsIgnoringCase(*service, "all")) {
    browseAllServices(metadataFolder);
  } else if (known) {
    browseOneService(*service, metadataFolder, line.option("-opt"));
  } else {
    printText(texts::kUnknownToBrowse, orNull(service));
  }
}

}  // namespace halyard
