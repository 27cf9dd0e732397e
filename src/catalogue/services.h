// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The names that "-service" may have.
#pragma once

namespace halyard {

/// Prints each key of the preferences' "services" dictionary, one a line, in file order; missing
/// preference files are repaired first, silently.
void Services();

}  // namespace halyard
