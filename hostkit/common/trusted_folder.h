// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A folder on the way to which nobody but root can have planted a link.
#pragma once

#include <string>

#include "base/result.h"
#include "host/files/descriptor.h"

namespace halyard::hostkit {

/// The folder that holds the item at an absolute path, and the item's name in it.
struct TrustedPlace {
  host::Descriptor folder;
  std::string name;
};

/// Opens the folder above an item, component by component. A link on the way is followed only when
/// it and the folder that it stands in are root's and nobody else may write there; otherwise the
/// answer is ELOOP.
Result<TrustedPlace> trustedPlace(const std::string& path);

/// The same of the folder at an absolute path itself.
Result<host::Descriptor> openTrustedFolder(const std::string& path);

}  // namespace halyard::hostkit
