// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Tests that change the process itself run in a child: limits, signals, roots, mounts.
#pragma once

#include <sys/syscall.h>
#include <sys/types.h>

#include <functional>

namespace halyard::test {

/// Runs the function in a child; its result is the child's exit status, so expectations do not
/// work in there: answer with a number that tells which step was wrong. 128 + signal for a child
/// that was killed.
int exitStatusOf(const std::function<int()>& act);

/// The same in two steps, for a test that does something while the child runs.
pid_t startForked(const std::function<int()>& act);
int exitStatusOf(pid_t child);

/// In such a child: from now on the kernel refuses this system call with EPERM.
void refuseSystemCall(long number);

/// In such a child: mounts made from now on are its own and end with it. False without the right.
bool enterPrivateMounts();

/// Whether enterPrivateMounts would work here.
bool canMountPrivately();

}  // namespace halyard::test
