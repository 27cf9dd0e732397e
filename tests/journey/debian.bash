# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# Sourced by the scripts beside it: Debian systems to try the packages on, and how the scripts report.

source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
readonly kWork=$source_dir/build/journey

# Status 77: the stage cannot do its work on this machine.
skip() { printf '%s: skipped: %s\n' "${0##*/}" "$*"; exit 77; }
fail() { printf '%s: FAILED: %s\n' "${0##*/}" "$*" >&2; exit 1; }
step() { printf '\n== %s\n' "$*"; }

# A minimal system with some packages of the distribution: makeDebian FOLDER PACKAGE...
makeDebian() {
  local folder=$1 packages
  shift
  packages=$(IFS=,; printf '%s' "$*")
  rm -rf -- "$folder"
  mkdir -p "$kWork"
  debootstrap --variant=minbase ${packages:+--include="$packages"} bookworm "$folder" http://deb.debian.org/debian >"$folder.log" ||
    { tail -n 20 "$folder.log"; fail "debootstrap"; }
}

# Puts this system's packages, built when there are none, into a root's /root/packages.
bringPackages() {
  compgen -G "$source_dir/build/packages/halyard_*.deb" >/dev/null || "$source_dir/packaging/build"
  mkdir -p "$1/root/packages"
  cp -- "$source_dir"/build/packages/{halyard,halyard-hostkit}_*.deb "$1/root/packages"
}
