#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Every kind of wrong arrow is seen to fail, and every allowed one to pass.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"

tree=$(mktemp -d)
trap 'rm -rf -- "$tree"' EXIT

# put KIND FILE INCLUDE: the line, at the end of the file in the tree of that kind; its place is then in $at.
put() {
  mkdir -p "$tree/$1/hostkit" "$tree/$1/$(dirname -- "$2")"
  printf '#include %s\n' "$3" >>"$tree/$1/$2"
  at=$2:$(wc -l <"$tree/$1/$2")
}

declare -A why=()
refused() { # FILE INCLUDE REASON
  put refused "$1" "$2"
  why[$at]=$3
}
allowed() { put allowed "$1" "$2"; }

refused src/base/text.cpp '"host/files/files.h"' 'no arrow from src/base'
refused src/base/text.cpp '<unistd.h>' 'only host/'
refused src/host/files/files.cpp '"host/tree/tree_copy.h"' 'no arrow from src/host/files'
refused src/host/tree/tree_copy.cpp '"host/volumes/subvolume.h"' 'no arrow from src/host/tree'
refused src/host/files/files.cpp '"product/paths.h"' 'no arrow from src/host/files'
refused src/host/log/clock.cpp '"frontend/run/output.h"' 'no arrow from src/host/log'
refused src/product/paths.h '<sys/stat.h>' 'only host/'
refused src/product/service_descriptor.cpp '"frontend/run/output.h"' 'no arrow from src/product'
refused src/frontend/run/output.cpp '"config/preferences.h"' 'no arrow from src/frontend/run'
refused src/frontend/run/output.h '"frontend/dispatch.h"' 'no arrow from src/frontend/run'
refused src/config/validation.cpp '"backup/backup.h"' 'no arrow from src/config'
refused src/config/validation.cpp '"frontend/options.h"' 'no arrow from src/config'
refused src/backup/backup.cpp '"browse/browse.h"' 'no arrow from src/backup'
refused src/backup/backup.cpp '"restore/restore.h"' 'no arrow from src/backup'
refused src/browse/verify.cpp '"backup/metadata_folder.h"' 'no arrow from src/browse'
refused src/restore/restore.cpp '"browse/browse.h"' 'no arrow from src/restore'
refused src/catalogue/purge.cpp '"backup/metadata_folder.h"' 'no arrow from src/catalogue'
refused src/catalogue/purge.cpp '"frontend/dispatch.h"' 'no arrow from src/catalogue'
refused src/frontend/usage.cpp '"backup/backup.h"' 'no arrow from src/frontend/usage'
refused src/frontend/main.cpp '"backup/backup.h"' 'no arrow from src/frontend/main'
refused src/frontend/options.cpp '"frontend/dispatch.h"' 'no arrow from src/frontend/options'
refused src/backup/size.cpp '<unistd.h>' 'only host/'
refused src/frontend/main.cpp '<signal.h>' 'only host/'
refused src/browse/browse.cpp '"common/messages.h"' 'no arrow from src/browse'
refused src/browse/browse.cpp '"hostkit/common/messages.h"' 'from below src/ or hostkit/'
refused src/backup/size.cpp '"../host/files/files.h"' 'from the top of the tree'
refused src/extra/new.cpp '<string>' 'belongs to no layer'
refused src/frontend/extra.cpp '<string>' 'belongs to no layer'
refused src/host/extra/new.cpp '<string>' 'belongs to no layer'
refused hostkit/drivectl/main.cpp '"frontend/run/output.h"' 'no arrow from hostkit/drivectl'
refused hostkit/drivectl/main.cpp '"snapwheel/manifest.h"' 'no arrow from hostkit/drivectl'
refused hostkit/helmsman/settings/setup.cpp '"helmsman/run/backup.h"' 'no arrow from hostkit/helmsman/settings'
refused hostkit/helmsman/report/status.cpp '"helmsman/restore/restore.h"' 'no arrow from hostkit/helmsman/report'
refused hostkit/common/table.cpp '"helmsman/report/status.h"' 'no arrow from hostkit/common'

allowed src/base/property_list/reader.cpp '<expat.h>'
allowed src/base/property_list/reader.cpp '"base/text.h"'
allowed src/host/files/files.cpp '<sys/stat.h>'
allowed src/host/tree/tree_copy.cpp '"host/files/descriptor.h"'
allowed src/product/stored_snapshots.cpp '"host/volumes/subvolume.h"'
allowed src/frontend/run/output.cpp '"host/log/system_log.h"'
allowed src/frontend/run/output.cpp '"product/paths.h"'
allowed src/config/validation.cpp '"frontend/run/run_state.h"'
allowed src/backup/backup.cpp '"browse/master_browse.h"'
allowed src/backup/backup.cpp '"backup/metadata_folder.h"'
allowed src/restore/restore.cpp '"backup/metadata_folder.h"'
allowed src/restore/restore_service.cpp '"product/snapshot_metadata.h"'
allowed src/frontend/dispatch.cpp '"catalogue/purge.h"'
allowed src/frontend/dispatch.cpp '"frontend/usage.h"'
allowed src/frontend/main.cpp '"frontend/dispatch.h"'
allowed src/backup/size.cpp '<string_view>'
allowed hostkit/snapwheel/main.cpp '"host/tree/tree_copy.h"'
allowed hostkit/snapwheel/main.cpp '"product/paths.h"'
allowed hostkit/snapwheel/main.cpp '<CLI/CLI.hpp>'
allowed hostkit/helmsman/restore/undo.cpp '"helmsman/settings/services.h"'
allowed hostkit/helmsman/command_line.cpp '"helmsman/report/status.h"'

output=$("$source_dir/tools/check_layers" "$tree/refused")
checkEqual "the status with offences" 1 $?
for at in "${!why[@]}"; do
  checkContains "$at: $(sed -n "${at##*:}p" "$tree/refused/${at%:*}")" "${why[$at]}" "$(grep -F "$at: " <<<"$output")"
done
checkContains "nothing else is an offence" " ${#why[@]} offences" "$(tail -n 1 <<<"$output")"
output=$("$source_dir/tools/check_layers" "$tree/allowed")
checkEqual "the status without one" 0 $?
checkContains "all is allowed there" ' 0 offences' "$output"
finishTests
