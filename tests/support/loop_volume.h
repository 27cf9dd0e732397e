// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A small file system of its own in an image file, on a loop device.
#pragma once

#include <string>

#include "support/scratch.h"

namespace halyard::test {

/// The device goes with the object; an image that is still mounted then goes with its last mount.
class LoopVolume {
 public:
  /// `kind` is the file system's name, as in mkfs.<kind>. Not ready where loop devices or the tools
  /// are missing: such a test is skipped.
  LoopVolume(const Scratch& scratch, const std::string& kind, const std::string& label);
  ~LoopVolume();
  LoopVolume(const LoopVolume&) = delete;
  LoopVolume& operator=(const LoopVolume&) = delete;

  bool isReady() const { return ready_; }
  const std::string& device() const { return device_; }
  const std::string& uuid() const { return uuid_; }

  /// Mounts it in this process's mount namespace: for children that have entered their own.
  bool mountAt(const std::string& folder, const std::string& options = "") const;

 private:
  std::string kind_;
  std::string uuid_;
  std::string device_;
  bool ready_ = false;
};

/// What a command prints, without the line feeds at its end; empty when it fails.
std::string outputOf(const std::string& command);

}  // namespace halyard::test
