#include "common/version.h"

namespace halyard::hostkit {

const char* versionText() { return HOSTKIT_VERSION; }

}  // namespace halyard::hostkit
