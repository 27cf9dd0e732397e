#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# What the kit prints with --json, held against the schemas of docs/json. Every subcommand that has --json has a schema,
# and every schema is held against real output here.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
binary_dir=${HALYARD_BINARY_DIR:-$source_dir/build/dev}
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"
# The address sanitizer takes an exception for an error where a program does not see its own memory map, as in a root;
# ./check runs this with the programs that are packed, too.
! grep -q __asan_init "$binary_dir/helmsman" || { echo "skipped: the programs have the address sanitizer"; exit 77; }
python3 -c 'import jsonschema' 2>/dev/null || { echo "python3-jsonschema is not installed"; exit 77; }

work=$(mktemp -d)
root=$work/root
trap 'mountpoint -q "$root/disk" && umount "$root/disk"; rm -rf "$work"' EXIT

prepareRoot() {
  local program libraries=() descriptor
  for program in drivectl helmsman snapwheel; do libraries+=(--libraries-of "$binary_dir/$program"); done
  "$source_dir/tools/private-root" create "$root" --program "$binary_dir/Halyard" "${libraries[@]}" || exit 1
  cp -- "$binary_dir"/{drivectl,helmsman,snapwheel} "$root/usr/sbin/"
  mkdir -p "$root/usr/libexec" "$root/srv" "$root/etc/halyard-host" "$root/disk"
  printf 'data\n' >"$root/srv/depot"
  printf '/usr/*\n/lib*\n/bin/*\n/sbin/*\n/proc/*\n/disk/*\n' >"$root/etc/halyard-host/snapwheel.exclude"
  cat >"$root/usr/libexec/plugin" <<'PLUGIN'
#!/bin/sh
case $2 in
  size) echo 'total := 4096' ;;
  backup) mkdir -p "$4/srv" ;;
  verify) echo 'Number of failures to match := 2' ;;
esac
PLUGIN
  printf '#!/bin/sh\nexit 7\n' >"$root/usr/libexec/broken"
  chmod 755 "$root"/usr/libexec/*
  descriptor='<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>ServiceName</key><string>%s</string>
<key>BackupBinaryPath</key><string>/usr/libexec/%s</string><key>VerifyBinaryPath</key><string>/usr/libexec/plugin</string>
<key>DataFiles</key><array><string>%s</string>
<string>/srv/never</string></array></dict></plist>\n'
  # shellcheck disable=SC2059  # The format is the one above.
  {
    printf "$descriptor" depotHost plugin /srv/depot >"$root/private/etc/halyard/30-depotHost.plist"
    printf "$descriptor" postHost broken /srv/none >"$root/private/etc/halyard/40-postHost.plist"
  }
}

# A second volume, where one can be mounted; the lists are empty without it.
mountVolume() {
  truncate -s 16M "$work/image"
  mkfs.ext4 -q -L second "$work/image" && mount -o loop "$work/image" "$root/disk" 2>/dev/null || return 0
  printf '2 1 %s / /disk rw,relatime - ext4 /dev/second rw\n' "$(mountpoint -d "$root/disk")" >>"$root/proc/self/mountinfo"
}

# As after the system volume was brought back from a snapshot of another one.
bringHostBack() {
  mkdir -p "$root/.Halyards/depotHost"
  printf '4711\n' >"$root/.Halyards/.halyardSignature"
  printf '<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>VolumeUUID</key>
<string>0a0a0a0a-0000-4000-8000-000000000000</string></dict></plist>\n' >"$root/.Halyards/ServerSourceDiskInfo.plist"
}

inRoot() { "$source_dir/tools/private-root" run "$root" -- "$@" 2>>"$work/errors"; }

declare -A held=()

# holds SCHEMA STATUS PROGRAM WORD...: what is printed with --json fits the schema, and the status is this one.
holds() {
  local schema=$1 expected=$2 lines=() status
  shift 2
  held[$schema]=1
  [[ $schema == helmsman-backup ]] && lines=(--lines)
  inRoot "$@" --json >"$work/output"
  status=$?
  checkEqual "$*: its status" "$expected" "$status"
  check "$*: fits $schema" fits "$schema" "${lines[@]}"
}
# fits SCHEMA [--lines]: asks the judge, which is started once; its last word on an output is the verdict.
fits() {
  local line
  printf '%s\n' "$*" >&"${judge[1]}"
  while IFS= read -r line <&"${judge[0]}"; do
    case $line in
      fits) return 0 ;;
      'does not fit') return 1 ;;
    esac
    printf '%s\n' "$line"
  done
  echo "the judge has ended"
  return 1
}

# Breaks the output of the last command; a schema that takes this takes anything.
refuses() { # NAME SED-SCRIPT
  sed -i "$2" "$work/output"
  check "$1" not fits "$3"
}

subcommandsOf() { "$binary_dir/$1" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'; }
schemasOfTheHelp() {
  local program command
  echo error
  for program in drivectl helmsman snapwheel; do
    for command in $(subcommandsOf "$program"); do
      "$binary_dir/$program" "$command" --help | grep -q -- '--json' && echo "$program-$command"
    done
  done
}

prepareRoot
mountVolume
coproc judge { "$source_dir/tests/support/json_schema.py" "$source_dir/docs/json" "$work/output"; }
holds drivectl-info 0 drivectl info /
refuses "a member that no schema names is refused" 's/"ReadOnly"/"Readonly"/' drivectl-info
holds drivectl-list 0 drivectl list
holds error 1 drivectl info /nowhere
holds error 2 helmsman status --nonsense
holds error 2 snapwheel lsit
holds helmsman-status 0 helmsman status
holds helmsman-destination 0 helmsman destination --show
holds helmsman-destination 0 helmsman destination --list
if mountpoint -q "$root/disk"; then
  checkEqual "the free room of a volume is root's" "$(($(stat -f -c "%f * %S" "$root/disk")))" \
    "$(grep -o '"availableBytes": *[0-9]*' "$work/output" | grep -o '[0-9]*$')"
fi
holds helmsman-schedule 0 helmsman schedule
holds helmsman-schedule 0 helmsman schedule --keep 9
check "what was changed is shown" grep -q '"daysToRetain": 9' "$work/output"
holds helmsman-backup 4 helmsman backup
refuses "a run without its result is refused" 's/"result"/"Result"/' helmsman-backup
holds helmsman-status 0 helmsman status --size
holds helmsman-check 0 helmsman check
rm "$root/usr/libexec/broken"
holds helmsman-check 1 helmsman check
holds helmsman-snapshots 0 helmsman snapshots
holds helmsman-volumes 0 helmsman volumes
holds helmsman-verify 1 helmsman verify depotHost
holds helmsman-verify 1 helmsman verify
refuses "a service without its state is refused" 's/"state"/"State"/' helmsman-verify
bringHostBack
holds helmsman-status 0 helmsman status
holds helmsman-recover 1 helmsman recover --yes
mkdir -p "$root/var/lib/halyard/undo"
printf 'old\n' >"$root/srv/depot.previous"
printf '{"service": "depotHost", "time": "2026-01-01T00:00:00Z", "items": [{"path": "/srv/depot", "wasLive": true}]}\n' \
  >"$root/var/lib/halyard/undo/depotHost.json"
holds helmsman-tidy 0 helmsman tidy --yes
# The newest snapshot carries a backup of the services, as older ones do, so that some may go.
mkdir -p "$root/.Halyards"
printf 'signed\n' >"$root/.Halyards/.halyardSignature"
holds snapwheel-snapshot 0 snapwheel snapshot
inRoot snapwheel pin latest --note 'for a look' >/dev/null
holds snapwheel-list 0 snapwheel list
holds helmsman-snapshots 0 helmsman snapshots
printf 'other\n' >"$root/srv/depot"
inRoot snapwheel snapshot >/dev/null
paths=("$root/Volumes/Backup/Archives.snapdb/files1"/*)
oldest=${paths[0]##*/}
holds snapwheel-diff 0 snapwheel diff "$oldest" latest /srv
check "what changed is told" grep -q '"/srv/depot"' "$work/output"
refuses "a difference without its kind is refused" 's/"kind"/"Kind"/' snapwheel-diff
holds snapwheel-diff 0 snapwheel diff latest --now /srv
holds snapwheel-find 0 snapwheel find depot
check "what was found is told" grep -q '"/srv/depot"' "$work/output"
holds helmsman-diff 0 helmsman diff depotHost "$oldest" latest
check "what changed of a service is told" grep -q '"/srv/depot"' "$work/output"
holds helmsman-diff 0 helmsman diff depotHost latest
holds error 1 helmsman diff depotHost 1999
holds helmsman-find 0 helmsman find depot
check "what was found of it is told" grep -q '"/srv/depot"' "$work/output"
holds helmsman-scrub 0 helmsman scrub
holds helmsman-status 0 helmsman status
holds snapwheel-prune 0 snapwheel prune --dry-run --keep-last 1 --days-to-retain 0
holds snapwheel-prune 0 snapwheel prune --keep-last 1 --days-to-retain 0
mkdir "$root/Volumes/Backup/Archives.snapdb/files1/2020-01-01-000000"
holds snapwheel-list 0 snapwheel list
holds snapwheel-check 1 snapwheel check --read-data
holds helmsman-file 0 helmsman file restore /srv/depot --in-place --dry-run
mkdir "$root/restored-file"
holds helmsman-file 0 helmsman file restore /srv/depot --to /restored-file
refuses "a restored file without its path is refused" 's/"restoredTo"/"to"/' helmsman-file
holds snapwheel-restore 0 snapwheel restore latest --path /srv/depot --to /restored --dry-run
holds snapwheel-restore 4 snapwheel restore latest --path /srv/depot --path /none --to /restored
rm -rf "$root/Volumes/Backup"
holds helmsman-destination 1 helmsman destination
holds helmsman-status 0 helmsman status
holds error 1 helmsman snapshots
holds error 1 snapwheel list

sorted() { sort -u | paste -sd ' '; }
checkEqual "every --json is held against its schema" "$(schemasOfTheHelp | sorted)" \
  "$(printf '%s\n' "${!held[@]}" | sorted)"
checkEqual "every schema is held against output" "$(printf '%s\n' "$source_dir"/docs/json/*.schema.json |
  sed 's|.*/||; s|\.schema\.json$||' | sorted)" "$(printf '%s\n' "${!held[@]}" | sorted)"
checkEqual "docs/interfaces.md lists every schema" "$(printf '%s\n' "${!held[@]}" | sorted)" \
  "$(grep -oE 'json/[a-z-]+\.schema\.json' "$source_dir/docs/interfaces.md" | sed 's|json/||; s|\.schema.*||' | sorted)"
[[ $testsFailed -eq 0 ]] || cat "$work/errors"
finishTests
