#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# The manual pages of the host kit's programs hold every subcommand and option that the programs say in their help, and
# their synopses no more.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
binary_dir=${HALYARD_BINARY_DIR:-$source_dir/build/dev}
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"
command -v mandoc >/dev/null || { echo "skipped: there is no mandoc"; exit 77; }

# As a terminal shows it, each form of the synopsis on one line.
page() { mandoc -Tascii -O width=500 "$source_dir/packaging/man/$1.8" | sed 's/.\x08//g'; }
synopsis() { page "$1" | sed -n '/^SYNOPSIS$/,/^DESCRIPTION$/s/^ *\('"$1"' .*\)/\1/p'; }
sorted() { sort -u | paste -sd ' '; }
# Long options, and short ones of one letter.
options() { grep -oE -- '(^|[^a-z-])(--[a-z][a-z-]*|-[a-z]\b)' | sed 's/^[^-]*//' | sorted; }
help() { "$binary_dir/$1" "${@:2}" --help | grep -oE -- '^  (-[a-z],)?--[a-z][a-z-]*' | tr -s ' ,' '\n'; }
subcommands() { "$binary_dir/$1" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'; }

for program in helmsman snapwheel drivectl; do
  # "enable | disable service" is of both.
  forms=$(synopsis "$program" | sed -E "s/^$program ([a-z]+) \| ([a-z]+)( .*)/$program \1\3\n$program \2\3/")
  checkEqual "$program: the subcommands" "$(subcommands "$program" | sorted)" \
    "$(sed -nE "s/^$program ([a-z]+).*/\1/p" <<<"$forms" | sorted)"
  for command in $(subcommands "$program"); do
    checkEqual "$program $command: its options" "$(help "$program" "$command" | grep -vx -e -h -e --help | options)" \
      "$(grep -E "^$program $command( |\$)" <<<"$forms" | options)"
  done
  words=" $(page "$program" | options) "
  for option in $(help "$program"); do
    checkContains "$program: its option $option" " $option " "$words"
  done
done
finishTests
