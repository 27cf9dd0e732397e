#include "snapwheel/settings.h"

#include <algorithm>

#include "host/files/files.h"
#include "host/volumes/alias.h"
#include "product/paths.h"
#include "product/preference_keys.h"
#include "product/snapshot_engine.h"
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
  if (!host::exists(file)) {
    throw Failure("no destination is set: " + file + " is missing (helmsman destination sets one)");
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
