// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/settings.h"

#include <unistd.h>

#include <algorithm>

#include "host/files/property_file.h"
#include "host/volumes/alias.h"
#include "product/paths.h"
#include "product/preference_keys.h"
#include "product/stored_snapshots.h"
#include "snapwheel/failure.h"

namespace halyard::snapwheel {

std::string findDestination(const std::string& aliasRecord) {
  if (!aliasRecord.empty()) {
    if (const auto path = host::resolveAlias(aliasRecord)) return *path;
    throw Failure("the destination \"" + aliasRecord +
                  "\" is not there: no such folder, or its volume is not mounted");
  }
  if (const auto session = defaultBackupSession(paths::kEnginePreferenceFile)) {
    return session->destination;
  }
  const std::string file = paths::kEnginePreferenceFile;
  if (::geteuid() != 0) throw Failure("the destination can be found by root alone: run it as root");
  const auto preferences = host::readDictionary(file);
  if (!preferences || preferences->find(preference_keys::kBackupAlias) == nullptr) {
    throw Failure(std::string("no destination is set: ") + file +
                  (preferences ? " names none" : " is missing or cannot be read") +
                  " (helmsman destination sets one; --destination names one)");
  }
  throw Failure("the destination that " + file +
                " names is not there: connect or mount its volume, or set another one with "
                "helmsman destination");
}

unsigned preferredDays(const std::optional<PropertyDictionary>& enginePreferences) {
  if (!enginePreferences) return 0;
  const PropertyValue* days = enginePreferences->find(preference_keys::kDaysToRetain);
  if (days == nullptr) return 0;
  return static_cast<unsigned>(std::max(days->integerValue(), 0));
}

}  // namespace halyard::snapwheel
