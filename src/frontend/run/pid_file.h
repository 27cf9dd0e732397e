// The single-instance marker. Only its existence counts: nobody reads it back.
#pragma once

namespace halyard {

/// Replaces the pid file.
///
/// Reads:  the option "-cmd".
/// Writes: the process identifier, " :: ", the command word as typed ("(null)" when absent) and a
///         line feed; an error is ignored.
void setPidForProcess();

/// Removes the pid file if it is there; an error is ignored.
void removePidProcessFile();

}  // namespace halyard
