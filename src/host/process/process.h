// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The process itself: what must hold before the program does anything.
#pragma once

namespace halyard::host {

/// Opens closed descriptors 0 to 2 on /dev/null (else the first file opened would become standard
/// output) and ignores SIGPIPE and SIGXFSZ, so that a closed terminal or a file size limit does not
/// kill a backup half way.
void prepareProcess();

/// The identifier of this process.
int processIdentifier();

}  // namespace halyard::host
