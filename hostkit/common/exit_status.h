// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The exit statuses that drivectl, helmsman and snapwheel share.
#pragma once

namespace halyard::hostkit {

inline constexpr int kSuccess = 0;  ///< All went well.
inline constexpr int kFailure = 1;  ///< It did not, or a check found an error; the reason is told.
inline constexpr int kUsageError = 2;  ///< The command line cannot be understood; nothing was done.
inline constexpr int kBusy = 3;        ///< Another run holds what this one needs; try again later.
inline constexpr int kPartial = 4;     ///< Done in part; what was left out is named.

}  // namespace halyard::hostkit
