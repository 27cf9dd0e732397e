// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The walk over one volume of the source, and what becomes of the items that it cannot copy.
#pragma once

#include <string>
#include <string_view>

#include "host/tree/tree_copy.h"
#include "snapwheel/damage.h"
#include "snapwheel/manifest.h"
#include "snapwheel/source_volume.h"
#include "snapwheel/work_folder.h"

namespace halyard::snapwheel {

class VolumeWalk {
 public:
  /// What is missing or torn, and all counts, are added to the manifest. `host` is the root of the
  /// source, by whose accounts the owners are named.
  VolumeWalk(const SourceVolume& source, const WorkFolder& work, const std::string& host,
             Manifest& manifest)
      : source_(source),
        work_(work),
        place_(work.volume(source.place())),
        host_(host),
        manifest_(manifest) {}

  /// Throws Failure when the destination gives up.
  VolumeRecord run();

 private:
  void removeFalseHandOver() const;
  DamageRecord damageOfReference() const;
  void tellFalseHandOver(std::string_view path) const;
  void noteTorn(const std::string& path);
  bool goesOn(std::string_view path, int error);
  VolumeRecord recordOf(const host::TreeCopyReport& report) const;

  const SourceVolume& source_;
  const WorkFolder& work_;
  WorkVolume place_;
  const std::string& host_;
  Manifest& manifest_;
  int fatal_ = 0;
};

/// The volume is to be in the snapshot and is not: tells it and records it.
void noteAbsentVolume(const SourceVolume& source, int error, Manifest& manifest);

/// Tells how many items there are of which only the first were named.
void tellUnnamedItems(const Manifest& manifest);

}  // namespace halyard::snapwheel
