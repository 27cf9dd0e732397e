// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The fixture of the tests of snapshots that hold several volumes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "snapshot_test.h"
#include "snapwheel/check_repository.h"
#include "support/mounted_volume.h"

namespace halyard::snapwheel {

/// The source has another file system at /vol/data.
class FurtherVolumes : public SnapshotTest {
 protected:
  void SetUp() override {
    SnapshotTest::SetUp();
    if (IsSkipped()) return;
    further_ = std::make_unique<test::MountedVolume>(scratch_, "ext4", 16, "source/vol/data");
    if (!further_->reason().empty()) GTEST_SKIP() << further_->reason();
    put("vol/data/one", "of the volume");
    put("vol/data/deep/two", std::string(100000, 'y'));
    put("vol/data/cache/x", "to be left out");
    settle();
  }

  SnapshotRequest requestOfAll() const {
    SnapshotRequest all = request();
    all.furtherVolumes = {"/vol/data"};
    return all;
  }
  SnapshotOutcome takeAll() const { return takeSnapshot(*repository_, requestOfAll()); }
  std::string further(const SnapshotOutcome& outcome) const {
    return repository_->path(outcome.name) + "/vol-data";
  }
  static std::vector<std::string> withoutVolume(std::vector<std::string> listing) {
    std::erase_if(listing, [](const std::string& line) { return line.starts_with("/vol/data"); });
    return listing;
  }
  std::vector<std::string> findings(CheckDepth depth) const {
    std::vector<std::string> texts;
    for (const Finding& finding : checkRepository(*repository_, depth).findings) {
      texts.push_back(finding.path.substr(repository_->hostFolder().size() + 1) + " " +
                      finding.text);
    }
    return texts;
  }

  std::unique_ptr<test::MountedVolume> further_;
};

}  // namespace halyard::snapwheel
