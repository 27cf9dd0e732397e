#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Completion of the host kit's command lines: it offers what the programs say in their help, no more and no less.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
binary_dir=${HALYARD_BINARY_DIR:-$source_dir/build/dev}
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"
for program in helmsman snapwheel drivectl; do
  # shellcheck source=/dev/null
  . "$source_dir/packaging/completion/$program"
done

# Stand-ins for what completion asks the host.
Halyard() { printf 'depotHost\npostHost\n'; }
helmsman() {
  case $* in
    *snapshots) printf 'Name  Taken\n2026-11-20-020000  x\n2026-11-21-020000  x\n' ;;
    *--list) printf 'Volume  Size\nUUID=1815  x\n' ;;
  esac
}
snapwheel() {
  if [[ $* == *"--computer files2"* ]]; then
    printf 'Name  Taken\n2026-01-01-000000  x\n'
  else
    printf 'Name  Taken\n2026-11-20-020000  x\n'
  fi
}

# Words, one a line, on one line in order.
sorted() { sort -u | paste -sd ' '; }
words() { grep -v '^-' | sorted; }

# completed PROGRAM WORD...: what is offered for the last word, on one line.
completed() {
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMPREPLY=()
  "_$1"
  printf '%s\n' "${COMPREPLY[@]}"
}

# The long options that a command's help shows.
optionsOf() { "$binary_dir/$1" "${@:2}" --help | grep -oE '(^|[ ,])--[a-z][a-z-]*' | tr -d ' ,'; }
subcommandsOf() { "$binary_dir/$1" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'; }

offers() { # NAME EXPECTED-LINES OFFERED-LINES
  checkEqual "$1" "$(sorted <<<"$2")" "$(sorted <<<"$3")"
}

for program in helmsman snapwheel drivectl; do
  checkEqual "$program: the subcommands" "$(subcommandsOf "$program" | sorted)" "$(completed "$program" '' | words)"
  offers "$program: the options before them" "$(optionsOf "$program")" "$(completed "$program" --)"
done
for command in $(subcommandsOf helmsman); do
  offers "helmsman $command: its options" "$(optionsOf helmsman "$command")" "$(completed helmsman "$command" --)"
done
for command in $(subcommandsOf snapwheel); do
  # The options before a subcommand may stand after it, too.
  offers "snapwheel $command: its options" "$(optionsOf snapwheel "$command"; optionsOf snapwheel)" \
    "$(completed snapwheel "$command" --)"
done

offers "a service by its beginning" depotHost "$(completed helmsman restore dep)"
offers "a plain word" mail "$(completed helmsman restore mai)"
offers "a snapshot to restore from" $'2026-11-20-020000\n2026-11-21-020000\nlatest' \
  "$(completed helmsman restore depotHost --from '')"
offers "the snapshots to purge" $'2026-11-20-020000\n2026-11-21-020000' "$(completed helmsman purge 2)"
offers "a destination" UUID=1815 "$(completed helmsman destination U)"
offers "the only word after settings" backup "$(completed helmsman settings b)"
offers "the only word after file" restore "$(completed helmsman file r)"
offers "the file to restore" "${BASH_SOURCE[0]}" "$(completed helmsman file restore "${BASH_SOURCE[0]%.sh}")"
offers "a day" $'Thursday\nTuesday' "$(completed helmsman schedule --weekly T)"
offers "nothing where a text is free" "" "$(completed helmsman restore depotHost --opt '')"
offers "a subcommand after an option" restore "$(completed helmsman --quiet res)"
# Bash parts words at ":" and "=", and replaces what stands behind the last of them.
offers "a snapshot behind =" $'2026-11-20-020000\n2026-11-21-020000' \
  "$(completed helmsman restore depotHost --from = 2026-11-2)"
offers "every snapshot behind =" $'2026-11-20-020000\n2026-11-21-020000\nlatest' \
  "$(completed helmsman restore depotHost --from =)"
offers "a service behind an option with =" depotHost "$(completed helmsman restore --from = latest dep)"
offers "a day behind a week" Sunday "$(completed helmsman schedule --monthly 2 : S)"
offers "every day behind a week and =" Sunday "$(completed helmsman schedule --monthly = 2 :)"
offers "the rest of a destination" 1815 "$(completed helmsman destination UUID = 1)"
offers "a snapshot of a computer behind =" $'2026-01-01-000000\nlatest' \
  "$(completed snapwheel delete --computer = files2 '' | words)"
offers "where words are parted at blanks alone" --from=2026-11-20-020000 \
  "$(completed helmsman restore depotHost --from=2026-11-20)"
folder=$(mktemp -d)
mkdir "$folder/a:b"
offers "a folder with a colon" b "$(completed snapwheel restore --to "$folder/a" :)"
offers "a file behind = and a colon" b "$(completed snapwheel list --config = "$folder/a" : b)"
rmdir "$folder/a:b" "$folder"

offers "a snapshot to delete" $'2026-11-20-020000\nlatest' "$(completed snapwheel delete '' | words)"
offers "a snapshot of another computer" $'2026-01-01-000000\nlatest' \
  "$(completed snapwheel delete --computer files2 '' | words)"
finishTests
