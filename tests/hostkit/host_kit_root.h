// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A private root with the host kit's programs in it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/files/descriptor.h"
#include "support/private_root.h"

namespace halyard::test {

/// For a plug-in's script: when it is called for a restore, it says that it worked.
inline constexpr char kSayDone[] =
    "\nif [ \"$2\" = restore ]; then\n"
    "  for word; do [ \"$last\" != -path ] || "
    "echo \"done ${word##*/}\" >>\"${HALYARD_RESTORE_JOURNAL:-/dev/null}\"; last=$word; done\nfi\n";

/// Holds the lock that a running backup holds, until the descriptor is closed.
host::Descriptor holdBackupLock(const PrivateRoot& root);

/// The fixture of the host kit's command tests: drivectl and helmsman of this build stand at their
/// fixed paths, in place of the stand-ins.
class HostKitTest : public PrivateRootTest {
 protected:
  void SetUp() override;

  /// Puts a program of the build folder, with its libraries, at /usr/sbin of a root.
  static void install(const std::string& program, const PrivateRoot& root);

  /// The real engine, with a destination at /backup and nothing left out.
  void installEngine() const;

  CommandResult helmsman(const std::vector<std::string>& words,
                         const Environment& environment = {}) const;
  /// On a terminal, where the text is typed.
  CommandResult helmsmanAnswered(const std::vector<std::string>& words,
                                 const std::string& typed) const;
  /// For command lines that are refused or ask for help: the parser throws there. What the program
  /// starts itself must not see the memory map that is then shown, so nothing may be started.
  CommandResult refused(const std::string& program, const std::vector<std::string>& words) const;
  CommandResult drivectl(const std::vector<std::string>& words) const;
  /// The real one, once it is installed.
  CommandResult snapwheel(const std::vector<std::string>& words) const;

  /// The JSON that the command printed; the test fails when it is none.
  nlohmann::json helmsmanJson(const std::vector<std::string>& words) const;

  /// Takes away what the root has prepared, as on a host that was never set up.
  void forgetSetup() const;
};

}  // namespace halyard::test
