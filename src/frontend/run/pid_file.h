// The single-instance marker. Only its existence counts: nobody reads it back.
#pragma once

#include "base/text.h"

namespace halyard {

/// Replaces the pid file.
///
/// Writes: the process identifier, " :: ", the command word ("(null)" when absent) and a
///         line feed; an error is ignored.
void setPidForProcess(const MaybeString& command);

/// Removes the pid file if it is there; an error is ignored.
void removePidProcessFile();

}  // namespace halyard
