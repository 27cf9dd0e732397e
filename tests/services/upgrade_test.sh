#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# The maintainer scripts of the package, run by dpkg itself in a private root: descriptors that an earlier version
# brought as configuration files become links, and what was changed stays.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"

[[ $EUID -eq 0 ]] || { echo "upgrade: skipped: dpkg installs as root only"; exit 77; }
command -v dpkg-deb >/dev/null || { echo "upgrade: skipped: there is no dpkg-deb"; exit 77; }

scratch=$(mktemp -d)
trap 'rm -rf -- "$scratch"' EXIT
root=$scratch/root
folder=/usr/share/halyard/services

# Scripts run inside the root and ask dpkg-query there.
newRoot() {
  rm -rf -- "$root"
  "$source_dir/tools/private-root" create "$root" --program "${HALYARD_PROGRAM:-/bin/true}" \
    --libraries-of "$(type -P dpkg-query)" --libraries-of "$(type -P dpkg)" --template "$scratch/template" || exit 1
  mkdir -p "$root/usr/share/dpkg/sh"
  cp -- /usr/share/dpkg/sh/dpkg-error.sh "$root/usr/share/dpkg/sh"
  cp -- "$(type -P dpkg-maintscript-helper)" "$(type -P dpkg-query)" "$(type -P dpkg)" "$root/usr/bin"
  mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers} "$root/etc/halyard"
  : >"$root/var/lib/dpkg/status"
}

makePackage() { # VERSION: what lies in $scratch/VERSION becomes a package
  mkdir -p "$scratch/$1/DEBIAN"
  printf '%s\n' "Package: halyard" "Version: $1" "Architecture: all" "Maintainer: nobody <nobody@halyard.invalid>" \
    "Description: a test" >"$scratch/$1/DEBIAN/control"
  dpkg-deb --build --root-owner-group "$scratch/$1" "$scratch/$1.deb" >/dev/null
}

# As 1.0.0 was: descriptors as configuration files.
makeEarlierPackage() {
  mkdir -p "$scratch/1.0.0-1/etc/halyard" "$scratch/1.0.0-1/DEBIAN"
  cp "$source_dir"/services/descriptors/*.plist "$scratch/1.0.0-1/etc/halyard"
  # The packaged text of one is another one by now.
  echo '<!-- earlier -->' >>"$scratch/1.0.0-1/etc/halyard/20-rosterHost.plist"
  (cd "$scratch/1.0.0-1" && printf '/%s\n' etc/halyard/*.plist) >"$scratch/1.0.0-1/DEBIAN/conffiles"
  makePackage 1.0.0-1
}

makeThisPackage() { # VERSION [LINE]: the last line of its preinst.
  local script
  mkdir -p "$scratch/$1$folder" "$scratch/$1/DEBIAN"
  cp "$source_dir"/services/descriptors/*.plist "$scratch/$1$folder"
  for script in preinst postinst postrm; do
    sed '/^#DEBHELPER#$/d' "$source_dir/debian/halyard.$script" >"$scratch/$1/DEBIAN/$script"
    chmod 755 "$scratch/$1/DEBIAN/$script"
  done
  echo "${2:-}" >>"$scratch/$1/DEBIAN/preinst"
  makePackage "$1"
}

# No terminal and no answer: a question would fail.
onRoot() {
  PATH=/usr/sbin:/usr/bin:/sbin:/bin dpkg --root="$root" --force-depends --log=/dev/null "$@" </dev/null 2>&1
}
# The configuration files that dpkg holds for the package's.
remembered() {
  dpkg-query --admindir="$root/var/lib/dpkg" --show --showformat='${Conffiles}\n' halyard | sed -n 's|^ /etc/halyard/\([^ ]*\).*|\1|p'
}
linkOf() { readlink "$root/etc/halyard/$1"; }

makeEarlierPackage
makeThisPackage 9.0.0-1
makeThisPackage 9.0.0-2 "exit 1"

newRoot
check "the earlier version is installed" onRoot --install "$scratch/1.0.0-1.deb"
echo '<!-- mine -->' >>"$root/etc/halyard/60-siteHost.plist"
rm "$root/etc/halyard/40-parleyHost.plist"
before=$(cd "$root/etc/halyard" && md5sum -- *)
checkEqual "an upgrade is called off" "failed" \
  "$(onRoot --install "$scratch/9.0.0-2.deb" >/dev/null && echo succeeded || echo failed)"
checkEqual "leaves every file" "$before" "$(cd "$root/etc/halyard" && md5sum -- *)"
output=$(onRoot --install "$scratch/9.0.0-1.deb")
checkEqual "the upgrade succeeds without a question" "0" "$?"
for name in 20-rosterHost 30-postHost 35-agendaHost 45-hostProfile 50-depotHost; do
  checkEqual "$name is a link now" "$folder/$name.plist" "$(linkOf "$name.plist")"
done
checkEqual "a changed descriptor stays a file" "" "$(linkOf 60-siteHost.plist)"
checkContains "with what was changed" mine "$(cat "$root/etc/halyard/60-siteHost.plist")"
checkContains "it is told, with the command" \
  "ln -sf $folder/60-siteHost.plist /etc/halyard/60-siteHost.plist" "$output"
checkEqual "one that was removed stays away" "no" "$([[ -e $root/etc/halyard/40-parleyHost.plist ]] && echo yes || echo no)"
checkEqual "nothing else lies in the folder" "20-rosterHost.plist 30-postHost.plist 35-agendaHost.plist \
45-hostProfile.plist 50-depotHost.plist 60-siteHost.plist" "$(cd "$root/etc/halyard" && printf '%s ' * | sed 's/ $//')"

checkEqual "dpkg remembers the changed one alone" "60-siteHost.plist" "$(remembered)"

check "the same version once more" onRoot --install "$scratch/9.0.0-1.deb"
checkEqual "changes nothing" "$folder/20-rosterHost.plist" "$(linkOf 20-rosterHost.plist)"

check "the package is removed" onRoot --remove halyard
checkEqual "the settings stay" "$folder/50-depotHost.plist" "$(linkOf 50-depotHost.plist)"
check "the package is purged" onRoot --purge halyard
checkEqual "the settings are gone" "no" "$([[ -e $root/etc/halyard ]] && echo yes || echo no)"

finishTests
