#!/bin/bash
# Every kind of wrong arrow is seen to fail, and every allowed one to pass.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"

tree=$(mktemp -d)
trap 'rm -rf -- "$tree"' EXIT

# offence FILE INCLUDE: the message for a tree in which only this line stands; empty when it is allowed.
offence() {
  rm -rf -- "$tree/src" "$tree/hostkit"
  mkdir -p "$tree/src" "$tree/hostkit" "$tree/$(dirname -- "$1")"
  printf '#include %s\n' "$2" >"$tree/$1"
  local output status
  output=$("$source_dir/tools/check_layers" "$tree")
  status=$?
  if [[ $status -ne 0 ]]; then
    printf '%s\n' "$output" | head -n 1
  elif [[ $output != *" 0 offences" ]]; then
    printf 'status 0 with offences: %s\n' "$output"
  fi
}

refused() {
  checkContains "$1 must not include $2" "$3" "$(offence "$1" "$2")"
}

allowed() {
  checkEqual "$1 may include $2" "" "$(offence "$1" "$2")"
}

refused src/host/files.cpp '"frontend/log.h"' 'no arrow from host'
refused src/host/files.cpp '"config/paths.h"' 'no arrow from host'
refused src/frontend/log.cpp '"config/preferences.h"' 'no arrow from base'
refused src/host/files.h '"config/paths.h"' 'no arrow from host'
refused src/frontend/log.h '"frontend/dispatch.h"' 'no arrow from base'
refused src/config/validation.cpp '"backup/backup.h"' 'no arrow from config'
refused src/config/validation.cpp '"frontend/options.h"' 'no arrow from config'
refused src/backup/backup.cpp '"browse/browse.h"' 'no arrow from backup'
refused src/backup/backup.cpp '"restore/restore.h"' 'no arrow from backup'
refused src/browse/verify.cpp '"backup/metadata_folder.h"' 'no arrow from browse'
refused src/restore/restore.cpp '"browse/browse.h"' 'no arrow from restore'
refused src/catalogue/purge.cpp '"backup/metadata_folder.h"' 'no arrow from catalogue'
refused src/catalogue/purge.cpp '"frontend/dispatch.h"' 'no arrow from catalogue'
refused src/frontend/usage.cpp '"backup/backup.h"' 'no arrow from usage'
refused src/frontend/main.cpp '"backup/backup.h"' 'no arrow from main'
refused src/frontend/options.cpp '"frontend/dispatch.h"' 'no arrow from options'
refused src/backup/size.cpp '<unistd.h>' 'only host/'
refused src/config/paths.h '<sys/stat.h>' 'only host/'
refused src/frontend/main.cpp '<signal.h>' 'only host/'
refused src/browse/browse.cpp '"hostkit/common/paths.h"' 'nothing in src/ uses hostkit/'
refused src/backup/size.cpp '"../host/files.h"' 'from the top of the tree'
refused src/extra/new.cpp '<string>' 'belongs to no layer'
refused src/frontend/extra.cpp '<string>' 'belongs to no layer'
refused hostkit/drivectl/main.cpp '"frontend/log.h"' 'no arrow from hostkit'
refused hostkit/drivectl/main.cpp '"config/paths.h"' 'no arrow from hostkit'

allowed src/host/files.cpp '<sys/stat.h>'
allowed src/host/files.cpp '"host/descriptor.h"'
allowed src/frontend/log.cpp '"host/system_log.h"'
allowed src/frontend/log.cpp '"config/paths.h"'
allowed src/config/validation.cpp '"frontend/run_state.h"'
allowed src/backup/backup.cpp '"browse/master_browse.h"'
allowed src/backup/backup.cpp '"backup/metadata_folder.h"'
allowed src/restore/restore.cpp '"backup/metadata_folder.h"'
allowed src/restore/restore_service.cpp '"browse/snapshot_metadata.h"'
allowed src/frontend/dispatch.cpp '"catalogue/purge.h"'
allowed src/frontend/dispatch.cpp '"frontend/usage.h"'
allowed src/frontend/main.cpp '"frontend/dispatch.h"'
allowed src/backup/size.cpp '<string_view>'
allowed hostkit/snapwheel/main.cpp '"host/tree_copy.h"'
allowed hostkit/snapwheel/main.cpp '<CLI/CLI.hpp>'

finishTests
