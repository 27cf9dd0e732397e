// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The systemd units of a service's server: stopped while its items change places, and asked
// whether they run once it is restored.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace halyard::hostkit {

/// The units of the servers of a shipped service; absent when its servers are not known.
std::optional<std::vector<std::string>> unitsOfService(const std::string& service);

/// Those of the service's units that this host is to run: active, failed or enabled ones.
class ServerUnits {
 public:
  explicit ServerUnits(const std::string& service);

  /// Stops them; false, with messages, when one did not stop.
  bool stop() const;
  /// Forgets their failures, starts them and asks whether they run; false, with messages, else.
  bool start() const;
  /// Starts those that do not run, as start() does; one sentence for each that does not run then.
  std::vector<std::string> settle() const;
  /// What the administrator has to do instead; empty when nothing.
  const std::string& advice() const { return advice_; }

 private:
  std::vector<std::string> units_;
  std::string advice_;
};

}  // namespace halyard::hostkit
