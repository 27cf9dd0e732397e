#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# The closing line of ./check counts what passed, what failed and what could not run, in a tree whose tools are stand-ins.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"

tree=$(mktemp -d)
trap 'rm -rf -- "$tree"' EXIT
mkdir -p "$tree/tools" "$tree/tests/journey" "$tree/bin"
cp -- "$source_dir/check" "$tree/check"

# stand_in PATH STATUS [TEXT]: a program that prints the text and ends so.
stand_in() {
  printf '#!/bin/sh\ncat <<"TEXT"\n%s\nTEXT\nexit %d\n' "${3:-}" "$2" >"$tree/$1"
  chmod +x "$tree/$1"
}

# run STAGE...: what ./check prints.
run() { PATH=$tree/bin:$PATH "$tree/check" "$@" 2>&1; }
closing() { run "$@" | tail -n 1; }

stand_in tools/check_layers 0
stand_in tests/journey/run 1
stand_in tests/journey/units 77 'units: skipped: no container here'
checkEqual "a stage each" '1 passed, 1 failed, 1 skipped' "$(closing layers journey units)"
checkContains "the reason of a skipped stage" 'units    skipped: no container here' "$(run units)"
checkEqual "a stage whose tool is missing" '0 passed, 0 failed, 1 skipped' "$(closing package)"
check "a failed stage fails the whole" not run layers journey
check "nothing done is no success" not run units
check "a skipped stage does not" run layers units

stand_in bin/cmake 0
stand_in bin/ctest 8 '60% tests passed, 2 tests failed out of 5

The following tests did not run:
	  2 - b (Skipped)
	  6 - d (Disabled)

The following tests FAILED:
	  3 - c (Failed)
	  5 - e (Failed)
Errors while running CTest'
checkEqual "the tests of the suite" '2 passed, 2 failed, 2 skipped' "$(closing tests)"
checkEqual "the tests and a stage" '3 passed, 2 failed, 2 skipped' "$(closing layers plain)"
stand_in bin/ctest 0 '100% tests passed, 0 tests failed out of 5'
checkEqual "all tests pass" '5 passed, 0 failed, 0 skipped' "$(closing tests)"
stand_in bin/ctest 8 'no tests were found'
checkEqual "a suite without figures has failed" '0 passed, 1 failed, 0 skipped' "$(closing tests)"
check "a stage that nobody knows is refused" not run nonsense
finishTests
