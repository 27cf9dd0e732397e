// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The records of a snapshot that was in other hands: manifest, owners' names, damaged files. What
// is read is written again and then reads the same.
#include "scratch_folder.h"
#include "snapwheel/damage.h"
#include "snapwheel/manifest.h"
#include "snapwheel/owner_names.h"

using halyard::fuzz::expect;
namespace snapwheel = halyard::snapwheel;

namespace {

void readManifestIn(const std::string& snapshot) {
  const auto manifest = snapwheel::readManifest(snapshot);
  if (!manifest) return;
  expect(bool(snapwheel::writeManifest(snapshot, *manifest)), "a manifest is written");
  const auto again = snapwheel::readManifest(snapshot);
  expect(again && toJson(*again) == toJson(*manifest), "a manifest reads as it was written");
}

void readOwnersIn(const std::string& snapshot) {
  const auto names = snapwheel::readOwnerNames(snapshot);
  if (!names) return;
  expect(bool(snapwheel::writeOwnerNames(snapshot, *names)), "the owners are written");
  const auto again = snapwheel::readOwnerNames(snapshot);
  expect(again && again->users.size() == names->users.size() &&
             again->groups.size() == names->groups.size(),
         "the owners read as they were written");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const halyard::fuzz::ScratchFolder folder;
  if (size == 0) return 0;
  folder.makeFolder(".snapwheel");
  const std::string_view text(reinterpret_cast<const char*>(bytes) + 1, size - 1);
  switch (bytes[0] % 3) {
    case 0:
      (void)folder.write(".snapwheel/manifest.json", text);
      readManifestIn(folder.path());
      break;
    case 1:
      (void)folder.write(".snapwheel/owners.json", text);
      readOwnersIn(folder.path());
      break;
    default:
      (void)folder.write(".snapwheel/damaged", text);
      (void)snapwheel::readDamage(folder.path());
  }
  return 0;
}
