// How a command of the engine ends early.
#pragma once

#include <stdexcept>
#include <string>

#include "common/exit_status.h"

namespace halyard::snapwheel {

/// Ends a command: main() prints the text on standard error and ends with the status.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text, int status = hostkit::kFailure)
      : std::runtime_error(text), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

/// "<what>: <the system's text for the errno value>".
std::string errorText(const std::string& what, int error);

}  // namespace halyard::snapwheel
