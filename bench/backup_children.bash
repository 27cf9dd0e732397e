# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Sourced by the benchmarks. What a backup starts, in its order, for spawn_loop to do the same.

# list_children PLUGIN DATA SERVICE...: every service has the one plug-in; with DATA, the folder
# DATA-SERVICE is copied after the service's plug-in has run.
list_children() {
  local plugin=$1 data=$2 service
  local pipeline="/bin/df -k / | /usr/bin/grep / | /usr/bin/awk '{ print \$2 }'"
  shift 2
  for service in "$@"; do
    printf '%s\t-cmd\tsize\t-opt\tall\n' "$plugin"
  done
  printf '/bin/sh\t-c\t%s\n' "$pipeline"
  printf '/bin/mkdir\t-p\t-m\t0770\t/Volumes/Backup/Archives.snapdb\n'
  printf '/bin/sh\t-c\t%s\n' "$pipeline"
  for service in "$@"; do
    printf '%s\t-cmd\tbackup\t-path\t%s\t-log\t%s\n' "$plugin" "/.Halyards/$service" "/tmp/$service.log"
    [[ -z $data ]] || printf 'copy\t%s-%s\t%s\n' "$data" "$service" "/.Halyards/$service$data-$service"
  done
  printf '/usr/sbin/drivectl\tinfo\t-plist\t/\n/usr/bin/uuidgen\n'
}
