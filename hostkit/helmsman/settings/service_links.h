// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The descriptors that packages bring, and the links that switch them on.
//
// Packages keep descriptors out of the configuration folder, where the program takes every file for
// a descriptor: an upgrade that left a second file there would run a service twice.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace halyard::hostkit {

/// A descriptor in the folder of packages.
struct ShippedDescriptor {
  std::string fileName;
  std::string service;
};

/// In the order of their names; what names no service is left out.
std::vector<ShippedDescriptor> shippedDescriptors();

bool isShipped(std::string_view service);

/// Whether an installed descriptor is a link to one that packages bring.
bool leadsToShipped(const std::string& path);

/// What became of the links of a service.
struct LinkChange {
  bool changed = false;
  std::string problem;  ///< Empty when all is as it should be.
};

/// Links the shipped descriptor of a service into the configuration folder, unless a descriptor of
/// it is there: that one is the administrator's.
LinkChange placeLinks(std::string_view service);

/// Takes links to shipped descriptors of the service out of the configuration folder; files stay.
LinkChange removeLinks(std::string_view service);

/// Places the links of every shipped service that the preferences switch on, with a note for each.
/// False, with the reason told, when one could not be placed.
bool placeLinksOfServicesThatAreOn();

/// The same for every shipped service, on a host whose configuration folder has no descriptor yet.
bool placeFirstLinks();

}  // namespace halyard::hostkit
