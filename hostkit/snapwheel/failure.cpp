#include "snapwheel/failure.h"

#include "common/messages.h"

namespace halyard::snapwheel {

std::string errorText(const std::string& what, int error) {
  return what + ": " + hostkit::errnoText(error);
}

}  // namespace halyard::snapwheel
