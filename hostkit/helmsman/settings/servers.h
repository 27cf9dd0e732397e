// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Which server programs the services cover, and which servers of this host nothing covers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "helmsman/settings/services.h"

namespace halyard::hostkit {

/// The service that a plain word means: "mail" is postHost. Absent for any other word.
std::optional<std::string_view> serviceOfWord(std::string_view word);
/// The plain word of a service; empty when it has none.
std::string_view wordOfService(std::string_view service);
/// Every plain word with its service, for help: "directory (rosterHost), mail (postHost), ...".
std::string plainWords();

/// Whether the service has anything on this host: one of its servers, or data that its descriptor
/// lists. Known of the plug-ins that are shipped; a service with another plug-in is on this host.
bool isOnThisHost(const InstalledDescriptor& descriptor);

/// A server whose data no enabled service saves as the server wants it: the snapshot of the volume
/// has its files as they happened to lie.
struct UncoveredServer {
  std::string name;
  std::string program;  ///< By which it was found.
  std::string service;  ///< That would cover it, and is off; empty when there is none.
};

std::vector<UncoveredServer> uncoveredServers();

/// "PostgreSQL is not covered (/usr/bin/...)": one sentence.
std::string describe(const UncoveredServer& server);

}  // namespace halyard::hostkit
