// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Looks at two items where their indexes do not tell whether they are alike.
#pragma once

#include <sys/stat.h>

#include <string>

#include "host/files/descriptor.h"
#include "host/tree/file_data_copy.h"

namespace halyard::snapwheel {

/// A tree that root looks into and does not trust: no link in it is followed, and no other file
/// system entered.
class LookedAtTree {
 public:
  /// Throws Failure when the folder cannot be opened.
  explicit LookedAtTree(const std::string& root);

  /// The item itself, a link too; none when it cannot be opened. The path is relative to the root,
  /// empty for it.
  host::Descriptor open(const std::string& path, int flags) const;

 private:
  host::Descriptor root_;
};

struct ItemDifference {
  bool contents = false;    ///< Of a link where it leads, of a device which one it is.
  bool attributes = false;  ///< Owner, mode, lists and other extended attributes; times but for
                            ///< folders.
  bool isUnknown = false;   ///< One of them cannot be looked at.
};

class ItemLook {
 public:
  /// Compares two items of the same kind; the contents of files only when asked to.
  ItemDifference compare(const LookedAtTree& left, const LookedAtTree& right,
                         const std::string& path, bool withContents);

 private:
  ItemDifference compareOpened(const LookedAtTree& left, const LookedAtTree& right,
                               const std::string& path, const struct stat& leftStatus,
                               bool withContents);
  host::FileDataCopier data_;
};

}  // namespace halyard::snapwheel
