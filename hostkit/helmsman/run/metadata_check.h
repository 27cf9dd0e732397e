// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Checks of the metadata folder that a backup leaves on the live system.
#pragma once

#include <string>
#include <vector>

namespace halyard::hostkit {

/// The bytes of the signature file in a metadata folder; empty without one.
std::string signatureIn(const std::string& metadataFolder);

/// What is wrong with the folder's own files after a run, one sentence each; none when all is
/// well. `signatureBefore`: the signature of the run before, which must not be there any more.
std::vector<std::string> metadataProblems(const std::string& metadataFolder,
                                          const std::string& signatureBefore);

}  // namespace halyard::hostkit
