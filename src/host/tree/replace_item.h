// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// An item takes the place of another one.
#pragma once

#include <string>

namespace halyard::host {

/// What becomes of flags that forbid to replace an item (chattr +i, +a).
enum class Locks { respected, opened };

/// Renames the item `temporary` over whatever stands under the name in the same folder; only a
/// folder there is removed before. After an error the old item stands as it did, but for a folder
/// that could not be removed whole, and the new one is gone.
int replaceItem(int folder, const std::string& temporary, const char* name, Locks locks);

/// The same where others use what stands there, and where nothing may stand: what is replaced
/// is replaced only by an item whose data is on disk, since a power cut could else leave the new
/// name on the disk and neither content.
int publishItem(int folder, const std::string& temporary, const char* name, Locks locks);

}  // namespace halyard::host
