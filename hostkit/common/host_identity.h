// The name under which this host's snapshots are kept.
#pragma once

#include <string>
#include <string_view>

namespace halyard::hostkit {

inline constexpr char kUnknownComputer[] = "Unknown_Computer";

/// "System" / "System" / "ComputerName" of the host configuration file; kUnknownComputer when any
/// step finds nothing. This is where the program looks for snapshots, so the engine puts them
/// there.
std::string computerName();

/// A computer name made from a host name: its first label, without characters that a folder of the
/// repository cannot have; kUnknownComputer when nothing is left.
std::string computerNameFromHostName(std::string_view hostName);

/// Whether a folder of this name in the repository would be found and listed.
bool isUsableComputerName(std::string_view name);

}  // namespace halyard::hostkit
