#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# The real logrotate rotates the logs by the configuration that the package ships, in the folder that it lays out.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"

PATH=$PATH:/usr/sbin:/sbin
[[ $EUID -eq 0 ]] || { echo "skipped: owners of folders need root"; exit 77; }
command -v logrotate >/dev/null || { echo "skipped: there is no logrotate"; exit 77; }
command -v systemd-tmpfiles >/dev/null || { echo "skipped: there is no systemd-tmpfiles"; exit 77; }
# The programs of the host are mounted into the root: in a namespace of its own, nothing stays mounted.
if [[ -z ${HALYARD_ROTATION_INSIDE:-} ]]; then
  unshare --mount true 2>/dev/null || { echo "skipped: no mount namespace can be made here"; exit 77; }
  HALYARD_ROTATION_INSIDE=1 exec unshare --mount "$0"
fi

root=$(mktemp -d)
trap 'umount "$root/usr"; rm -rf -- "$root"' EXIT
chmod 755 "$root"
mkdir -p "$root"/{usr,etc/logrotate.d,var/log,run}
mkdir -m 1777 "$root/tmp"
for link in bin sbin lib lib64; do ln -s "usr/$link" "$root/$link"; done
printf 'root:x:0:0:root:/root:/bin/sh\nmallory:x:1000:4::/:/bin/sh\n' >"$root/etc/passwd"
printf 'root:x:0:\nadm:x:4:mallory\n' >"$root/etc/group"
mount --bind -o ro /usr "$root/usr"

cp -- "$source_dir/debian/halyard.logrotate" "$root/etc/logrotate.d/halyard"
check "the folders are laid out" systemd-tmpfiles --root="$root" --create "$source_dir/debian/halyard.tmpfiles"
readonly kLogs=$root/var/log/halyard
checkEqual "no other account can plant anything among the logs" '770 root:root' "$(stat -c '%a %U:%G' "$kLogs")"

# rotate: logrotate a month after it last looked; what it prints is in rotated, its status in status.
rotate() {
  # Read by nobody else, as on a host.
  rm -f -- "$root/run/state"
  (umask 077 && printf 'logrotate state -- version 2\n"/var/log/halyard/siteHost.log" 2020-1-1-0:0:0
"/var/log/halyard/server_progress.log" 2020-1-1-0:0:0\n' >"$root/run/state")
  rotated=$(chroot "$root" logrotate --state /run/state /etc/logrotate.d/halyard 2>&1)
  status=$?
}

echo 'the first month' >"$kLogs/siteHost.log"
rotate
checkEqual "it ends well" "0 " "$status $rotated"
checkEqual "the log is set aside" 'the first month' "$(cat "$kLogs/siteHost.log.1" 2>&1)"
checkEqual "and starts afresh" 0 "$(stat -c %s "$kLogs/siteHost.log")"
echo 'the second month' >"$kLogs/siteHost.log"
rotate
checkEqual "it ends well again" "0 " "$status $rotated"
checkEqual "the log of the second month is set aside" 'the second month' "$(cat "$kLogs/siteHost.log.1" 2>&1)"
checkEqual "that of the first is packed" 'the first month' "$(gzip -dc "$kLogs/siteHost.log.2.gz" 2>&1)"

# A run is under way: it has its log open, and is judged by what stands there at its end.
exec 3>>"$kLogs/server_progress.log"
echo 'before the rotation' >&3
rotate
checkEqual "it ends well during a run" "0 " "$status $rotated"
echo 'after the rotation' >&3
exec 3>&-
checkEqual "the progress log of the run is whole" $'before the rotation\nafter the rotation' "$(cat "$kLogs/server_progress.log" 2>&1)"
finishTests
