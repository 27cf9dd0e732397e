# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Assertions for the shell tests; sourced. A test script ends with finishTests.
# shellcheck shell=bash

testsPassed=0
testsFailed=0

# check NAME COMMAND...: the command must end with 0; what it printed is shown when it does not.
check() {
  local name=$1 output
  shift
  if output=$("$@" 2>&1); then
    testsPassed=$((testsPassed + 1))
    return
  fi
  testsFailed=$((testsFailed + 1))
  printf 'FAILED: %s\n  %s\n%s\n' "$name" "$*" "$output"
}

# checkEqual NAME EXPECTED ACTUAL
checkEqual() {
  if [[ $2 == "$3" ]]; then
    testsPassed=$((testsPassed + 1))
    return
  fi
  testsFailed=$((testsFailed + 1))
  printf 'FAILED: %s\n  expected: %s\n  actual:   %s\n' "$1" "$2" "$3"
}

# checkContains NAME PART TEXT
checkContains() {
  if [[ $3 == *"$2"* ]]; then
    testsPassed=$((testsPassed + 1))
    return
  fi
  testsFailed=$((testsFailed + 1))
  printf 'FAILED: %s\n  no "%s" in: %s\n' "$1" "$2" "$3"
}

not() {
  ! "$@"
}

finishTests() {
  printf '%d passed, %d failed\n' "$testsPassed" "$testsFailed"
  [[ $testsFailed -eq 0 && $testsPassed -gt 0 ]]
}
