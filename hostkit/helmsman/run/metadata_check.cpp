// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/metadata_check.h"

#include "base/property_list.h"
#include "base/text.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {
constexpr std::size_t kSignatureLimit = 4096;
}

std::string signatureIn(const std::string& metadataFolder) {
  return host::readFile(joinPath(metadataFolder, paths::kSignatureName), kSignatureLimit)
      .value_or("");
}

std::vector<std::string> metadataProblems(const std::string& metadataFolder,
                                          const std::string& signatureBefore) {
  if (!host::isDirectory(metadataFolder)) return {metadataFolder + " was not made"};
  std::vector<std::string> problems;
  const std::string signature = signatureIn(metadataFolder);
  if (signature.empty()) {
    problems.emplace_back("the backup signature is missing");
  } else if (signature == signatureBefore) {
    problems.emplace_back("the backup signature is that of an earlier run");
  }
  const auto source = host::readDictionary(joinPath(metadataFolder, paths::kSourceDiskInfoName));
  if (!source || !source->text("VolumeUUID")) {
    problems.emplace_back(
        "the source volume was not recorded: a whole-system restore will be refused "
        "(does " +
        std::string(paths::kVolumeTool) + " work?)");
  }
  if (!host::readDictionary(joinPath(metadataFolder, paths::kMasterBrowseName), kBrowseDataLimit)) {
    problems.emplace_back("the browse catalogue was not written");
  }
  return problems;
}

}  // namespace halyard::hostkit
