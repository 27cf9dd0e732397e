// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// An item takes the place of another one.
#pragma once

#include <string>

namespace halyard::host {

/// What becomes of flags that forbid to replace an item (chattr +i, +a).
enum class Locks { respected, opened };

/// Renames the item `temporary` over whatever stands under the name in the same folder; a folder
/// there changes places with it. After an error the old item stands as it did, and the new one is
/// gone; but for a folder of which something could not be removed, which is under the temporary
/// name by then.
int replaceItem(int folder, const std::string& temporary, const char* name, Locks locks);

/// The same where others use what stands there, and where nothing may stand: what is replaced
/// is replaced only by an item whose data is on disk, since a power cut could else leave the new
/// name on the disk and neither content.
int publishItem(int folder, const std::string& temporary, const char* name, Locks locks);

/// The item `temporary`, which may be a folder, and what stands under the name change places, and
/// then the old one is removed. EBUSY, with all as it was, when something is mounted in it.
int changePlaces(int folder, const std::string& temporary, const char* name, Locks locks);

}  // namespace halyard::host
