// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// helmsman: the administration tool of Halyard on a Linux host.
#include "helmsman/command_line.h"

int main(int count, char** words) { return halyard::hostkit::runHelmsman(count, words); }
