# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT
# shellcheck shell=bash

# For snapshot_bench: loop-mounted file systems, source trees, the clock.

skip() {
  echo "${0##*/}: $*: nothing is measured" >&2
  exit 77
}

# makeScene DIR: $work below DIR, and in it the mount points $source and $target.
makeScene() {
  [[ $EUID == 0 ]] || skip "not root"
  losetup --find >/dev/null 2>&1 || skip "no loop device"
  work=$(mktemp -d "$1/snapshot-bench.XXXXXX")
  source=$work/source
  target=$work/target
  trap clearScene EXIT
  mkdir "$source" "$target"
}

clearScene() {
  umount "$target" 2>/dev/null || true
  umount "$source" 2>/dev/null || true
  rm -rf --one-file-system "$work"
}

makeImage() {  # FILE SYSTEM, IMAGE, MOUNT POINT, FILES
  rm -f "$2"
  truncate -s 16G "$2"
  case $1 in
    ext4) mkfs.ext4 -q -N $(($4 * 8 + 100000)) -E lazy_itable_init=0,lazy_journal_init=0 "$2" ;;
    *) "mkfs.$1" -q "$2" >/dev/null ;;
  esac
  mount -o loop "$2" "$3"
}

# Anew each time: ext4 is slow to find an inode among many that were just freed.
makeTarget() { makeImage "$1" "$work/target.img" "$target" "$2"; }  # FILE SYSTEM, FILES

remount() {
  umount "$target"
  mount -o loop "$work/target.img" "$target"
}

# Folders of 50 files, sizes from 0 to 16 KiB (4 KiB on average), a few links, everything older than now.
fillTree() {  # FOLDER, FILES
  perl -e '
    use strict; my ($root, $files) = @ARGV; srand(1); my $block = join("", map { chr(rand(256)) } 1 .. 16384);
    mkdir($root) or die $!;
    for my $number (0 .. $files - 1) {
      my $folder = sprintf("%s/d%03d/e%03d", $root, $number / 5000, $number / 50 % 100);
      if ($number % 50 == 0) { mkdir(sprintf("%s/d%03d", $root, $number / 5000)); mkdir($folder); }
      open(my $file, ">", "$folder/file$number") or die $!;
      print $file substr($block, rand(1000), int(rand() ** 3 * 16384)), $number;
      close($file);
      symlink("file$number", "$folder/link$number") if $number % 100 == 0;
      link("$folder/file$number", "$folder/other$number") if $number % 500 == 0;
    }' "$1" "$2"
}

fillLarge() { dd if=/dev/urandom of="$1" bs=1M count="$2" status=none; }  # FILE, MEBIBYTES

# Everything written is on disk, and what is below FOLDER in memory, or nothing at all.
settle() {  # warm|cold, FOLDER
  sync
  case $1 in
    warm) find "$2" -type f -exec cat {} + >/dev/null ;;
    cold) echo 3 >/proc/sys/vm/drop_caches ;;
    *) return 2 ;;
  esac
}

now() { echo "${EPOCHREALTIME/,/.}"; }

# timed FILE COMMAND...: appends "seconds seconds-with-sync" to FILE.
timed() {
  local into=$1 begin end synced
  shift
  begin=$(now)
  "$@"
  end=$(now)
  sync -f "$target"
  synced=$(now)
  awk -v b="$begin" -v e="$end" -v s="$synced" 'BEGIN { printf "%.3f %.3f\n", e - b, s - b }' >>"$into"
}

median() {  # FILE, COLUMN
  [[ -f $1 ]] || return 0
  awk -v c="$2" '{ print $c }' "$1" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}
