#include "host/system_log.h"

#include <syslog.h>
#include <unistd.h>

#include <string>

#include "host/clock.h"

namespace halyard::host {

void systemLog(int priority, std::string_view message) {
  const std::string text(message);
  ::openlog("Halyard", LOG_PID, LOG_USER);
  ::syslog(priority, "%s", text.c_str());
}

void platformLog(std::string_view message) {
  if (message.ends_with('\n')) message.remove_suffix(1);
  std::string line = currentDateText() + " Halyard[" + std::to_string(::getpid()) + "] ";
  line.append(message).append("\n");
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written <= 0) break;  // A closed or full standard error loses the line, not the run.
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  systemLog(LOG_NOTICE, message);
}

}  // namespace halyard::host
