#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Completion in zsh and fish, asked of the shells themselves: it offers what the programs say in their help, no more and
# no less. A shell that is not installed is left out and said.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
binary_dir=${HALYARD_BINARY_DIR:-$source_dir/build/dev}
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"
completion=$source_dir/packaging/completion

# The programs of this build by their names. They are asked for help and for snapshots, and have none to tell here.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for program in helmsman snapwheel drivectl; do
  cat >"$work/$program" <<STAND_IN
#!/bin/sh
for word; do [ "\$word" = --help ] && exec "$binary_dir/$program" "\$@"; done
printf 'Name  Taken\n2026-11-20-020000  x\n'
STAND_IN
done
printf '#!/bin/sh\nprintf "depotHost\\npostHost\\n"\n' >"$work/Halyard"
chmod 755 "$work"/*
PATH=$work:$PATH

cat >"$work/offer.zsh" <<'ZSH'
source "$1/zsh/_halyard-hostkit"
_describe() { print -rl -- "${(@P)@[-1]}" }
_files() { print files }
_directories() { print folders }
words=("${@[2,-1]}")
CURRENT=$#words
_halyard_hostkit
ZSH

# offered SHELL PROGRAM WORD...: what the shell offers for the last word, without descriptions.
offered() {
  case $1 in
    zsh) zsh -f "$work/offer.zsh" "$completion" "${@:2}" | sed 's/:.*//' ;;
    fish)
      fish --no-config -c "source $completion/fish/__halyard_complete.fish; source $completion/fish/$2.fish
        complete -C '${*:2}'" | sed 's/\t.*//' ;;
  esac
}
optionsOf() { "$binary_dir/$1" "${@:2}" --help | grep -oE '^  (-[a-z],)?--[a-z][a-z-]*' | grep -oE -- '--.*'; }
subcommandsOf() { "$binary_dir/$1" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'; }
sorted() { sort -u | paste -sd ' '; }
words() { grep -v '^-'; }
offers() { # NAME EXPECTED-LINES OFFERED-LINES
  checkEqual "$shell: $1" "$(sorted <<<"$2")" "$(sorted <<<"$3")"
}

for shell in zsh fish; do
  if ! command -v "$shell" >/dev/null; then
    echo "$shell is not installed; its completion was not tried"
    continue
  fi
  for file in "$completion/$shell"/*; do check "$shell reads ${file##*/}" "$shell" -n "$file"; done
  for program in helmsman snapwheel drivectl; do
    offers "the subcommands of $program" "$(subcommandsOf "$program")" "$(offered "$shell" "$program" '' | words)"
    offers "the options of $program" "$(optionsOf "$program")" "$(offered "$shell" "$program" --)"
    for command in $(subcommandsOf "$program"); do
      offers "the options of $program $command" "$(optionsOf "$program" "$command")" \
        "$(offered "$shell" "$program" "$command" --)"
    done
  done
  offers "the services" $'depotHost\npostHost' "$(offered "$shell" helmsman restore '' | words)"
  offers "the snapshots to restore from" $'latest\n2026-11-20-020000' \
    "$(offered "$shell" helmsman restore depotHost --from '')"
  offers "nothing where a text is free" '' "$(offered "$shell" helmsman restore depotHost --opt '')"
done
finishTests
