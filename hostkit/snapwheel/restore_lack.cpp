// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/restore_lack.h"

#include "common/messages.h"
#include "snapwheel/manifest.h"

namespace halyard::snapwheel {

namespace {

constexpr char kNoUtf8[] = "\xEF\xBF\xBD";  // Stands in a record for bytes of a name.

/// Counts the chosen ones of so many items, of which some are named, and tells each.
class Teller {
 public:
  Teller(const Choice& choice, std::uint64_t count) : choice_(choice), unnamed_(count) {}

  void tell(const std::string& path, const std::string& what) {
    if (path.find(kNoUtf8) != std::string::npos) return;
    unnamed_ -= unnamed_ == 0 ? 0 : 1;
    if (!isChosen(choice_, path)) return;
    ++told_;
    hostkit::printWarning("/" + path + ": " + what);
  }

  /// How many they are, the further ones with them.
  std::uint64_t finish(const std::string& what) const {
    if (unnamed_ != 0) {
      hostkit::printWarning(std::to_string(unnamed_) + " further " + what +
                            "; their names are not known");
    }
    return told_ + unnamed_;
  }

 private:
  const Choice& choice_;
  std::uint64_t unnamed_;
  std::uint64_t told_ = 0;
};

}  // namespace

LackReport tellLack(const std::string& snapshotPath, const Choice& choice) {
  const auto manifest = readManifest(snapshotPath);
  if (!manifest) {
    hostkit::printWarning(snapshotPath +
                          " has no readable manifest: what it lacks, or holds torn, is not known");
    return {};
  }
  LackReport report;
  Teller missing(choice, manifest->missingCount);
  for (const MissingItem& item : manifest->missing) {
    missing.tell(item.path, "is not in the snapshot: it could not be read then (" +
                                hostkit::errnoText(item.error) + ")");
  }
  report.missing = missing.finish("items could not be read for the snapshot, and are not in it");
  // Of files that changed whenever they were read nobody knows what they should hold.
  Teller torn(choice, manifest->tornCount);
  for (const std::string& path : manifest->torn) {
    torn.tell(path, "changed whenever it was read for the snapshot; maybe a mixture");
  }
  report.torn = torn.finish("files of the snapshot changed whenever they were read");
  return report;
}

}  // namespace halyard::snapwheel
