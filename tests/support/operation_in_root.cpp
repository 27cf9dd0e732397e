// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/operation_in_root.h"

#include <unistd.h>

#include <cstdio>

#include "frontend/run/run_state.h"
#include "support/forked.h"
#include "support/root_process.h"

namespace halyard::test {
namespace {

constexpr int kNotEntered = 125;
constexpr const char* kOutput = "/operation-output";
constexpr const char* kError = "/operation-error";

}  // namespace

CommandResult runOperation(const PrivateRoot& root, const std::function<int()>& act) {
  std::fflush(nullptr);  // Else the child writes what is still buffered once more.
  const uid_t user = geteuid();
  const gid_t group = getegid();
  CommandResult result;
  result.status = exitStatusOf([&] {
    if (std::freopen(root.path(kOutput).c_str(), "w", stdout) == nullptr) return kNotEntered;
    if (std::freopen(root.path(kError).c_str(), "w", stderr) == nullptr) return kNotEntered;
    if (!enterRoot(root.path(""), user, group)) return kNotEntered;
    runState() = RunState();
    const int status = act();
    std::fflush(stdout);
    std::fflush(stderr);
    return status;
  });
  result.out = root.readFile(kOutput);
  result.err = root.readFile(kError);
  return result;
}

}  // namespace halyard::test
