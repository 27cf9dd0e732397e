# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# What every service plug-in shares. A plug-in sets the names below, defines the hooks that it needs, sources this
# file and ends with: pluginMain "$@"
#
#   service         the ServiceName of its descriptor
#   ownItems        optional paths, one a line, that the plug-in saves itself when they exist (no blanks around them)
#   units           units of the host that are restarted after a restore, when they run
#
#   dumpTo DIR      writes what cannot be copied as files (a database as text) into the empty folder DIR
#   loadFrom DIR    puts back what dumpTo wrote
#
# The backup program copies the DataFiles and ConfigurationFiles of the descriptor itself. Three of its habits are
# fixed, and this library lives with them: it does not make the folder that directly holds a copied item, so backup
# makes it; at a restore it moves configuration files aside without putting the saved ones back, so restore does; and
# verify hands over a folder directly below the given path, so verify looks for the metadata folder itself.
#
# In the service folder F:  F/<path>        items of the descriptor, copied by the backup program
#                           F/own/<path>    items of ownItems
#                           F/dump/         what dumpTo wrote
#                           F/<service>.browse.plist
# shellcheck shell=sh

# Texts and dates must not depend on who started the backup.
export LC_ALL=C TZ=UTC

: "${service:?a plug-in sets its service name first}"
descriptorFolder=/private/etc/halyard
largestAnswer=2147483647
command='' folder='' log=/dev/null target=/ browseOption='' failures=0

# Overridden by plug-ins that have something to dump.
dumpTo() { :; }
loadFrom() { :; }

note() {
  printf '%s %s: %s\n' "$(date -u '+%Y-%m-%d %H:%M:%S +0000')" "$service" "$*" >>"$log" 2>/dev/null || :
}

problem() {
  failures=$((failures + 1))
  note "ERROR: $*"
  tell problem "$*"
}

# tell service|aside|made|problem|done TEXT: for helmsman, which asks for it during a restore only. With "aside" the path was
# replaced and the old item stands beside it, as PATH.previous; "service" names the service at the start, "done" the
# one that is back.
tell() {
  [ -n "${HALYARD_RESTORE_JOURNAL-}" ] || return 0
  printf '%s %s\n' "$1" "$2" >>"$HALYARD_RESTORE_JOURNAL" 2>/dev/null || :
}

# Option pairs in any order; an option may come twice, and the last one may lack its value.
parseWords() {
  while [ $# -gt 0 ]; do
    case $1 in
      -cmd) command=${2-} ;;
      -path) folder=${2-} ;;
      -log) [ -z "${2-}" ] || log=$2 ;;
      -target) target=${2-} ;;
      -opt) browseOption=${2-} ;;
    esac
    shift
    [ $# -eq 0 ] || shift
  done
}

# The texts of an array in this service's descriptor, one a line.
descriptorList() {
  descriptor=''
  for candidate in "$descriptorFolder"/??-"$service".plist; do
    [ ! -f "$candidate" ] || descriptor=$candidate
  done
  [ -n "$descriptor" ] || return 0
  tr '\n\t' '  ' <"$descriptor" | sed 's|<key>|\n<key>|g' | sed -n "s|^<key>$1</key> *<array>\(.*\)</array>.*|\1|p" |
    sed 's|<string>|\n<string>|g' | sed -n 's|^<string>\([^<]*\)</string>.*|\1|p' |
    sed 's|&lt;|<|g; s|&gt;|>|g; s|&amp;|\&|g'
}

configurationItems() { descriptorList ConfigurationFiles; }
dataItems() { descriptorList DataFiles; }

# The optional items, one a line, without the empty lines of a readable list.
optionalItems() { printf '%s\n' "${ownItems-}" | sed '/^$/d'; }

exists() { [ -e "$1" ] || [ -L "$1" ]; }

isMountPoint() {
  while read -r _ _ _ _ mounted _; do
    [ "$mounted" != "$1" ] || return 0
  done </proc/self/mountinfo
  return 1
}

# isAway PATH: when the volume that PATH is on, or one below it, is to be mounted by /etc/fstab and is not. What stands
# there is not what the service has, and what is put there is hidden later.
isAway() {
  [ -r /etc/fstab ] && [ -r /proc/self/mountinfo ] || return 1
  real=$(readlink -f -- "$1") || real=$1
  while read -r source place _ options _; do
    case $source,$place,,$options, in '#'* | *,noauto,*) continue ;; *,/?*) ;; *) continue ;; esac
    case $real/ in "$place"/*) ;; *) case $place/ in "$real"/*) ;; *) continue ;; esac ;; esac
    isMountPoint "$place" && continue
    note "ERROR: the volume at $place is not mounted, and $1 may be on it"
    return 0
  done </etc/fstab
  return 1
}

# makeParents SOURCE_ROOT TARGET_ROOT PATH: the folders above PATH below TARGET_ROOT, each with the owner, group and
# mode that its twin below SOURCE_ROOT has.
makeParents() {
  above=$(dirname -- "$3")
  [ "$above" != / ] || return 0
  [ ! -d "$2$above" ] || return 0
  makeParents "$1" "$2" "$above"
  # The recursion has changed it.
  above=$(dirname -- "$3")
  mkdir -- "$2$above" || return 1
  [ ! -d "$1$above" ] || { chown --reference="$1$above" -- "$2$above" && chmod --reference="$1$above" -- "$2$above"; }
}

# --- backup ---------------------------------------------------------------------------------------------------------

backupService() {
  [ -d "$folder" ] || { problem "no service folder at '$folder'"; return; }
  note "backup to $folder"
  { configurationItems; dataItems; } | {
    while IFS= read -r item; do
      exists "$item" || { note "$item is listed and not there"; continue; }
      makeParents '' "$folder" "$item" || exit 1
    done
  } || problem "cannot make the folders of the listed items"

  saveOwnItems || problem "not every item could be saved"
  mkdir -p -- "$folder/dump" && chmod 700 -- "$folder/dump"
  (umask 077 && dumpTo "$folder/dump") || problem "the dump failed"
  rmdir -- "$folder/dump" 2>/dev/null || :

  # The program copies the listed items after this run, so their live twins are described; and it prints the
  # catalogue of all services, so it is kept short.
  browseOption=''
  browseList '' >"$folder/$service.browse.plist" || problem "cannot write the browse file"
  note "backup done, $failures errors"
}

saveOwnItems() {
  optionalItems | {
    result=0
    while IFS= read -r item; do
      if isAway "$item"; then
        result=1
        continue
      fi
      exists "$item" || continue
      mkdir -p -- "$folder/own"
      if makeParents '' "$folder/own" "$item" && cp -a -- "$item" "$folder/own$item"; then
        note "saved $item"
      else
        result=1
        note "ERROR: cannot save $item"
      fi
    done
    exit "$result"
  }
}

# --- size -----------------------------------------------------------------------------------------------------------

# One line an item; an item larger than one answer can say takes several.
sizeOfService() {
  { configurationItems; dataItems; optionalItems; } | while IFS= read -r item; do
    exists "$item" || continue
    bytes=$(du -s --apparent-size --block-size=1 -- "$item" 2>/dev/null | cut -f 1)
    bytes=${bytes:-0}
    while [ "$bytes" -gt "$largestAnswer" ]; do
      printf 'total := %s\n' "$largestAnswer"
      bytes=$((bytes - largestAnswer))
    done
    printf 'total := %s\n' "$bytes"
  done
}

# --- restore --------------------------------------------------------------------------------------------------------

restoreService() {
  tell service "$service"
  [ "$target" = / ] || { problem "the target is always /, not '$target'"; return; }
  # Without a snapshot the program hands over a folder that is not there: nothing may be touched then.
  [ -d "$folder" ] || { problem "no saved service at '$folder'"; return; }
  note "restore from $folder"
  # Configuration was moved aside and is put back here; data is back already, unless its folder was missing.
  configurationItems | putBackAll replace "$folder" || problem "not all configuration is back"
  dataItems | putBackAll keep "$folder" || problem "not all data is back"
  optionalItems | putBackAll replace "$folder/own" || problem "not all items of the service are back"
  if [ -d "$folder/dump" ]; then
    loadFrom "$folder/dump" || problem "the dump could not be loaded"
  fi
  restartUnits
  note "restore done, $failures errors"
}

# putBackAll replace|keep ROOT: for each path on standard input that was saved below ROOT.
putBackAll() {
  result=0
  while IFS= read -r item; do
    exists "$2$item" || continue
    if exists "$item" && [ "$1" = keep ]; then continue; fi
    if isAway "$item"; then
      result=1
      continue
    fi
    if putBack "$2" "$item"; then
      note "put back $item"
    else
      result=1
      note "ERROR: cannot put back $item"
    fi
  done
  return "$result"
}

# The new item is whole before the live one goes aside, and a file is replaced in one step.
putBack() {
  staged=$2.restoring
  makeParents "$1" '' "$2" || return 1
  rm -rf -- "$staged"
  cp -a -- "$1$2" "$staged" || { rm -rf -- "$staged"; return 1; }
  kept=made
  if exists "$2"; then
    kept=aside
    rm -rf -- "$2.previous"
    if [ -d "$2" ] && [ ! -L "$2" ]; then
      mv -T -- "$2" "$2.previous" || return 1
    else
      cp -a -- "$2" "$2.previous" || return 1
    fi
  fi
  mv -T -- "$staged" "$2" || return 1
  tell "$kept" "$2"
}

restartUnits() {
  [ -d /run/systemd/system ] || return 0
  for unit in ${units-}; do
    # A server that is not on this host has no unit.
    systemctl cat "$unit" >/dev/null 2>&1 || continue
    systemctl try-restart "$unit" >>"$log" 2>&1 || problem "cannot restart $unit"
  done
}

# --- browse ---------------------------------------------------------------------------------------------------------

# Turns "kind bytes mode owner group date files path" lines (tabs between) into dictionaries.
entriesAsPlist() {
  awk -F '\t' '
  BEGIN {
    tail = "[\200-\277]"
    two = "[\302-\337]" tail
    three = "\340[\240-\277]" tail "|[\341-\354\356\357]" tail tail "|\355[\200-\237]" tail
    four = "\360[\220-\277]" tail tail "|[\361-\363]" tail tail tail "|\364[\200-\217]" tail tail
    utf8 = "^([\001-\177]|" two "|" three "|" four ")*$"
  }
  function escape(text) {
    # What is not UTF-8, or no character of XML, must not make the whole answer unreadable.
    if (text !~ utf8 || text ~ /\357\277[\276\277]/) gsub(/[\200-\377]/, "?", text)
    gsub(/[\001-\010\013\014\016-\037]/, "?", text)
    gsub(/&/, "\\&amp;", text); gsub(/</, "\\&lt;", text); gsub(/>/, "\\&gt;", text)
    return text
  }
  function entry(key, type, text) { printf "\t\t\t<key>%s</key>\n\t\t\t<%s>%s</%s>\n", key, type, text, type }
  {
    path = $8
    for (i = 9; i <= NF; ++i) path = path "\t" $i
    print "\t\t<dict>"
    entry("Path", "string", escape(path))
    entry("Kind", "string", $1)
    entry("Bytes", "integer", $2)
    entry("Modified", "date", $6)
    # An item that stands for all below it says how much that is; a single entry tells its own attributes.
    if ($7 != "") {
      entry("Files", "integer", $7)
    } else {
      entry("Mode", "string", $3)
      entry("Owner", "string", escape($4))
      entry("Group", "string", escape($5))
    }
    print "\t\t</dict>"
  }'
}

# entriesOf ROOT PATH: the item with the number and size of the files below it, or one entry for each of them.
entriesOf() {
  exists "$1$2" || return 0
  shown=$(printf %s "$2" | sed 's/[\\%]/&&/g')
  case $browseOption in
    all | "$2") find "$1$2" -printf "%y\\t%s\\t%m\\t%u\\t%g\\t%TY-%Tm-%TdT%TH:%TM:%TS\\t\\t$shown/%P\\0" ;;
    *)
      # Sizes as text: mawk prints no whole number above 31 bits.
      totals=$(find "$1$2" -type f -printf '%s\n' | awk '{ sum += $1 } END { printf "%d %.0f", NR, sum }')
      find "$1$2" -maxdepth 0 \
        -printf "%y\\t${totals#* }\\t%m\\t%u\\t%g\\t%TY-%Tm-%TdT%TH:%TM:%TS\\t${totals% *}\\t$shown/%P\\0"
      ;;
  esac | tr '\n\0' '?\n' | sed 's/\(T..:..:..\)\.[0-9]*\t/\1Z\t/; s|/$||'
}

# browseList ROOT: a property list of what is saved. ROOT is the service folder, or empty for the live items.
# Without -opt it names the items alone; with "all" everything below them, with a path everything below that one.
browseList() {
  printf '<?xml version="1.0" encoding="UTF-8"?>\n<plist version="1.0">\n<dict>\n'
  for part in configuration data own; do
    ownRoot=$1
    case $part in
      configuration) items=$(configurationItems) ;;
      data) items=$(dataItems) ;;
      own) items=$(optionalItems) && ownRoot=${1:+$1/own} ;;
    esac
    printf '\t<key>%s</key>\n\t<array>\n' "$part"
    printf '%s\n' "$items" | while IFS= read -r item; do
      [ -z "$item" ] || entriesOf "$ownRoot" "$item"
    done | entriesAsPlist
    printf '\t</array>\n'
  done
  printf '\t<key>dump</key>\n\t<array>\n'
  [ ! -d "$folder/dump" ] || entriesOf "$folder" /dump | entriesAsPlist
  printf '\t</array>\n</dict>\n</plist>\n'
}

# --- verify ---------------------------------------------------------------------------------------------------------

# manifest ROOT PATH: a line an attribute, led by the path, so that two trees compare line by line.
manifest() {
  exists "$1$2" || return 0
  find "$1$2" -printf '/%P\t%y %m %U:%G %l\0' | tr '\n\0' '?\n'
  find "$1$2" -type f -print0 | xargs -0 -r sha256sum -- |
    awk -v from="$(printf %s "$1$2" | wc -c)" '{ skip = /^\\/ ? 67 : 66; print "/" substr($0, skip + from + 2) "\t" substr($0, 1, 65) }'
}

# countDifferences ROOT PATH LIVE_ROOT: logs each path that differs, prints how many do.
countDifferences() {
  work=$(mktemp -d) || return 1
  manifest "$1" "$2" | sort >"$work/saved"
  manifest "$3" "$2" | sort >"$work/live"
  comm -3 --output-delimiter='' "$work/saved" "$work/live" | tr -d '\0' | awk -F '\t' '!($1 in seen) { seen[$1]; print $1 }' >"$work/paths"
  while IFS= read -r name; do
    note "differs: $2${name%/}"
  done <"$work/paths"
  wc -l <"$work/paths"
  rm -rf -- "$work"
}

# The folder is where verify is told to look, or in the metadata folder of a volume one level down.
findSavedFolder() {
  [ ! -d "$folder" ] || return 0
  for candidate in "$(dirname -- "$folder")"/*/.Halyards/"$(basename -- "$folder")"; do
    [ ! -d "$candidate" ] || folder=$candidate
  done
  [ -d "$folder" ]
}

verifyService() {
  if ! findSavedFolder; then
    problem "no saved service at '$folder'"
    printf 'Number of failures to match := 1\n'
    return
  fi
  note "verify against $folder"
  differing=$({
    { configurationItems; dataItems; } | while IFS= read -r item; do
      countDifferences "$folder" "$item" ''
    done
    optionalItems | while IFS= read -r item; do
      countDifferences "$folder/own" "$item" ''
    done
    verifyDump
  } | awk '{ sum += $1 } END { print sum + 0 }')
  note "verify done, $differing differences"
  printf 'Number of failures to match := %s\n' "$differing"
}

# A fresh dump against the saved one.
verifyDump() {
  [ -d "$folder/dump" ] || return 0
  fresh=$(mktemp -d) || return 0
  mkdir -m 700 -- "$fresh/dump"
  (umask 077 && dumpTo "$fresh/dump") || note "ERROR: the dump failed"
  countDifferences "$folder" /dump "$fresh"
  rm -rf -- "$fresh"
}

# --- entry ----------------------------------------------------------------------------------------------------------

pluginMain() {
  parseWords "$@"
  case $command in
    backup) backupService ;;
    size) sizeOfService ;;
    restore)
      restoreService
      [ "$failures" -ne 0 ] || tell 'done' "$service"
      ;;
    browse) [ ! -d "$folder" ] || browseList "$folder" ;;
    verify) verifyService ;;
    *)
      printf 'usage: %s -cmd backup|size|restore|browse|verify -path FOLDER -log LOG [-opt ACTION]\n' "$0" >&2
      exit 2
      ;;
  esac
  [ "$failures" -eq 0 ]
}
