// The systemd timer that starts backups.
#pragma once

#include <string>

namespace halyard::hostkit {

enum class TimerState { off, on };

/// Gives the timer its calendar (a drop-in, so that the packaged unit stays as it is), and starts
/// or stops it when systemd runs here. Without systemd the drop-in alone is written, with a note.
/// False, with the reason printed, when any of it failed.
bool setTimer(TimerState state, const std::string& calendar);

/// Whether systemd is the init system of this host.
bool systemdRuns();

}  // namespace halyard::hostkit
