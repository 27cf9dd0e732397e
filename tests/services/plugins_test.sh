#!/bin/bash
# SPDX-FileCopyrightText: 2026 The Halyard authors
# SPDX-License-Identifier: MIT

# The plug-ins of services/, each called in a private root as the program calls it.
set -u
source_dir=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tests/support/shell_test.sh
. "$source_dir/tests/support/shell_test.sh"

scratch=$(mktemp -d)
trap 'rm -rf -- "$scratch"' EXIT
root=$scratch/root
metadata=/.Halyards
log=/private/var/log/halyard/test.log

newRoot() {
  rm -rf -- "$root"
  "$source_dir/tools/private-root" create "$root" --program "${HALYARD_PROGRAM:-/bin/true}" \
    --template "$scratch/template" || exit 1
  "$source_dir/services/install" "$root"
  rm -rf -- "${root:?}$metadata"
}

inRoot() {
  "$source_dir/tools/private-root" run "$root" -- "$@"
}

plugin() {
  local service=$1
  shift
  inRoot "/usr/libexec/halyard/$service" "$@"
}

put() {
  mkdir -p "$root$(dirname -- "$1")"
  rm -f -- "$root$1" # A link in the root would lead out of it.
  printf '%s\n' "$2" >"$root$1"
}

# The program's own part of a backup: folder, plug-in, then the listed items without their parents.
backup() {
  mkdir -p "$root$metadata/$1"
  plugin "$1" -cmd backup -path "$metadata/$1" -log "$log" -opt all || return 1
  local item
  for item in "${@:2}"; do
    cp -a -- "$root$item" "$root$metadata/$1$item" || return 1
  done
}

# The program's own part of a restore: configuration aside, data aside and back.
setAside() {
  local item
  for item in "$@"; do
    rm -rf -- "$root$item.previous"
    mv -- "$root$item" "$root$item.previous"
  done
}

failuresOf() {
  plugin "$1" -cmd verify -path "$metadata/$1" -log "$log"
}

# --- the web service: configuration, data, and the items of its own
newRoot
put /etc/nginx/nginx.conf 'worker_processes 2;'
put /etc/nginx/sites/default 'root /var/www;'
put '/var/www/a file & more.html' '<p>hello</p>'
put /etc/apache2/apache2.conf 'ServerRoot "/etc/apache2"'
chmod 640 "$root/etc/nginx/nginx.conf"
chown 33:80 "$root/var/www" "$root/etc/apache2"
chmod 2750 "$root/var/www"
check "siteHost backs up" backup siteHost /etc/nginx /var/www
checkEqual "the parent of a listed item carries the live attributes" "$(stat -c '%a %u %g' "$root/var")" \
  "$(stat -c '%a %u %g' "$root$metadata/siteHost/var")"
check "own items are saved" diff -r "$root/etc/apache2" "$root$metadata/siteHost/own/etc/apache2"
check "the browse file is there" test -s "$root$metadata/siteHost/siteHost.browse.plist"
check "the browse file is a property list" python3 -c "import plistlib,sys; p=plistlib.load(open(sys.argv[1],'rb')); \
assert [e['Path'] for e in p['configuration']]==['/etc/nginx'], p; assert [e['Path'] for e in p['own']]==['/etc/apache2'], p; \
d=p['data'][0]; assert (d['Files'],d['Bytes'])==(1,13), p" "$root$metadata/siteHost/siteHost.browse.plist"
checkEqual "nothing differs after a backup" "Number of failures to match := 0" "$(failuresOf siteHost)"

put /etc/nginx/nginx.conf 'worker_processes 3;'
put /var/www/new.html 'new'
chmod 700 "$root/etc/apache2/apache2.conf"
checkEqual "content, a new file and a mode differ" "Number of failures to match := 3" "$(failuresOf siteHost)"
checkContains "the log names what differs" "differs: /var/www/new.html" "$(cat "$root$log")"
checkContains "the log names the own item" "differs: /etc/apache2/apache2.conf" "$(cat "$root$log")"
rm -rf "$root/var/www"
checkEqual "a missing tree counts each of its items" "Number of failures to match := 4" "$(failuresOf siteHost)"

setAside /etc/nginx
check "siteHost restores as the whole-system restore asks" plugin siteHost -cmd restore -path "$metadata/siteHost" \
  -log "$log" -target / -opt all
checkEqual "everything is back, attributes too" "Number of failures to match := 0" "$(failuresOf siteHost)"
checkEqual "the earlier own item is kept aside" "700" "$(stat -c %a "$root/etc/apache2.previous/apache2.conf")"

setAside /etc/nginx
rm -rf "$root/var/www"
export HALYARD_RESTORE_JOURNAL=/tmp/journal
check "siteHost restores as restoreService asks" plugin siteHost -cmd restore -opt all -path "$metadata/siteHost" \
  -log "$log" -opt all
checkEqual "its first word is whose journal it is" "service siteHost" "$(head -n 1 "$root/tmp/journal")"
checkEqual "its last word is that it worked" "done siteHost" "$(tail -n 1 "$root/tmp/journal")"
rm "$root/tmp/journal"
checkEqual "everything is back again" "Number of failures to match := 0" "$(failuresOf siteHost)"

# /srv/www is the service's own, and its volume is away.
put /srv/www/index.html 'of the volume'
put /etc/fstab 'UUID=1 / ext4 defaults 0 1
# UUID=2 /etc/nginx ext4 defaults 0 2
UUID=3 /var ext4 noauto 0 2
UUID=4 /srv ext4 defaults 0 2'
put /proc/self/mountinfo '1 0 8:1 / / rw - ext4 /dev/sda1 rw
2 1 8:2 / /srv rw - ext4 /dev/sda2 rw'
check "siteHost backs up what is on a mounted volume" backup siteHost /etc/nginx /var/www
mv -- "$root/srv/www" "$scratch/www"
put /proc/self/mountinfo '1 0 8:1 / / rw - ext4 /dev/sda1 rw'
check "a restore of what is on a volume that is not mounted fails" not plugin siteHost -cmd restore -opt all \
  -path "$metadata/siteHost" -log "$log"
checkContains "and says so" "ERROR: the volume at /srv is not mounted, and /srv/www may be on it" "$(tail -n 20 "$root$log")"
check "and puts nothing below the mount point" test ! -e "$root/srv/www"
rm -rf -- "$root$metadata/siteHost"
check "a backup of what is on a volume that is not mounted fails" not backup siteHost /etc/nginx /var/www
checkContains "and says so, too" "ERROR: the volume at /srv is not mounted" "$(tail -n 5 "$root$log")"
mv -- "$scratch/www" "$root/srv/www"
rm -rf -- "$root/etc/fstab" "$root/proc/self" "$root/srv/www" "$root$metadata/siteHost" "$root/etc/nginx.previous"
check "siteHost backs up without a table of volumes" backup siteHost /etc/nginx /var/www

before=$(cd "$root" && find etc var -printf '%p %m %s %T@\n' | sort)
check "a restore without a saved service fails" not plugin siteHost -cmd restore -opt all -path /siteHost -log "$log"
checkEqual "and does not say that it worked" "problem no saved service at '/siteHost'" "$(tail -n 1 "$root/tmp/journal")"
unset HALYARD_RESTORE_JOURNAL
check "a restore to another volume fails" not plugin siteHost -cmd restore -path "$metadata/siteHost" -log "$log" \
  -target /Volumes/Backup
checkEqual "neither touched anything" "$before" "$(cd "$root" && find etc var -printf '%p %m %s %T@\n' | sort)"

checkContains "browse lists the items" "<string>/var/www</string>" \
  "$(plugin siteHost -cmd browse -path "$metadata/siteHost")"
checkContains "browse of one path lists what is below it" "<string>/var/www/a file &amp; more.html</string>" \
  "$(plugin siteHost -cmd browse -path "$metadata/siteHost" -log "$log" -opt /var/www)"
checkContains "with its attributes" "<string>2750</string>" \
  "$(plugin siteHost -cmd browse -path "$metadata/siteHost" -log "$log" -opt /var/www)"
checkContains "and leaves the others short" "<key>Files</key>" \
  "$(plugin siteHost -cmd browse -path "$metadata/siteHost" -log "$log" -opt /var/www)"
checkEqual "browse of a folder that is not there answers nothing" "" "$(plugin siteHost -cmd browse -path /siteHost)"
printf 'x' >"$root$metadata/siteHost/var/www/"$'odd \xff\x01 name'
check "names of any bytes leave the answer readable" python3 -c "import plistlib,sys; \
plistlib.loads(sys.stdin.buffer.read())" < <(plugin siteHost -cmd browse -path "$metadata/siteHost" -opt all)
checkEqual "verify finds the metadata folder one level down" "Number of failures to match := 1" \
  "$(mkdir -p "$root/Volumes/Backup/S/Disk" && cp -a "$root$metadata" "$root/Volumes/Backup/S/Disk/.Halyards" &&
    plugin siteHost -cmd verify -path /Volumes/Backup/S/siteHost -log "$log")"
checkEqual "verify without a saved service reports a failure" "Number of failures to match := 1" \
  "$(plugin siteHost -cmd verify -path /nowhere/siteHost -log)"

# --- size
newRoot
mkdir -p "$root/etc/nginx" "$root/var/www"
head -c 1000 /dev/zero >"$root/var/www/data"
before=$(plugin siteHost -cmd size -opt all | awk '{ sum += $3 } END { print sum }')
head -c 501000 /dev/zero >"$root/var/www/data"
after=$(plugin siteHost -cmd size -opt all | awk '{ sum += $3 } END { print sum }')
checkEqual "size grows by what was added" 500000 "$((after - before))"
truncate -s 5G "$root/var/www/data"
checkEqual "no single answer is larger than one answer can say" 0 \
  "$(plugin siteHost -cmd size -opt all | awk '$3 > 2147483647' | wc -l)"
checkEqual "and their sum is right" "$((5368709120 - 501000 + after))" \
  "$(plugin siteHost -cmd size -opt all | awk '{ sum += $3 } END { printf "%.0f\n", sum }')"

# --- the directory service: a flat file without slapd, databases with it
newRoot
put /etc/ldap/ldap.conf 'BASE dc=example'
put /var/lib/roster/roster.ldif 'dn: cn=one'
check "rosterHost backs up" backup rosterHost /etc/ldap/ldap.conf
check "the flat directory is dumped" cmp "$root/var/lib/roster/roster.ldif" "$root$metadata/rosterHost/dump/roster.ldif"
put /var/lib/roster/roster.ldif 'dn: cn=two'
checkEqual "a changed directory is seen" "Number of failures to match := 1" "$(failuresOf rosterHost)"
setAside /etc/ldap/ldap.conf
check "rosterHost restores" plugin rosterHost -cmd restore -opt all -path "$metadata/rosterHost" -log "$log"
checkEqual "the directory is back" "dn: cn=one" "$(cat "$root/var/lib/roster/roster.ldif")"
checkEqual "the newer one is kept aside" "dn: cn=two" "$(cat "$root/var/lib/roster/roster.ldif.previous")"

newRoot
put /etc/ldap/ldap.conf 'BASE dc=example'
put /etc/ldap/slapd.d/cn=config.ldif 'dn: cn=config'
put /var/lib/ldap/data.mdb 'dn: cn=one'
chown -R 33:33 "$root/var/lib/ldap"
# Stand-ins with the words and the habits of the real programs: slapadd refuses a database that is not empty.
# shellcheck disable=SC2016  # They expand in the root.
put /usr/sbin/slapcat '#!/bin/sh
case $2 in 0) cat /etc/ldap/slapd.d/cn=config.ldif >"$4" ;; 1) cat /var/lib/ldap/data.mdb >"$4" ;; esac'
# shellcheck disable=SC2016
put /usr/sbin/slapadd '#!/bin/sh
case $2 in 0) to=/etc/ldap/slapd.d/cn=config.ldif ;; 1) to=/var/lib/ldap/data.mdb ;; esac
[ ! -e "$to" ] && [ "$3" = -F ] && cat "$6" >"$to"'
chmod 755 "$root/usr/sbin/slapcat" "$root/usr/sbin/slapadd"
check "rosterHost dumps databases" backup rosterHost /etc/ldap/ldap.conf
checkEqual "the entries are text" "dn: cn=one" "$(cat "$root$metadata/rosterHost/dump/entries.ldif")"
checkEqual "and readable by root alone" "600" "$(stat -c %a "$root$metadata/rosterHost/dump/entries.ldif")"
put /var/lib/ldap/data.mdb 'damaged'
checkEqual "a changed database is seen" "Number of failures to match := 1" "$(failuresOf rosterHost)"
setAside /etc/ldap/ldap.conf
check "rosterHost loads databases" plugin rosterHost -cmd restore -opt all -path "$metadata/rosterHost" -log "$log"
checkEqual "the entries are back" "dn: cn=one" "$(cat "$root/var/lib/ldap/data.mdb")"
checkEqual "their owner too" "33:33" "$(stat -c %u:%g "$root/var/lib/ldap/data.mdb")"
checkEqual "nothing differs after it" "Number of failures to match := 0" "$(failuresOf rosterHost)"
checkEqual "the damaged database is kept aside" "damaged" "$(cat "$root/var/lib/ldap.previous/data.mdb")"

# --- file shares: attributes of the shared folders, never their content
newRoot
put /etc/samba/smb.conf $'[team]\n  path = /srv/team room\n[gone]\n path=/srv/gone'
put /var/lib/samba/secrets.tdb 'secret'
put /etc/exports '/srv/export *(ro)'
mkdir -p "$root/srv/team room" "$root/srv/export"
put '/srv/team room/private.txt' 'of a user'
chown 33:80 "$root/srv/team room"
chmod 2770 "$root/srv/team room"
check "depotHost backs up" backup depotHost /etc/samba /var/lib/samba
checkEqual "what users keep is not copied" "" "$(find "$root$metadata/depotHost" -name private.txt)"
rm -rf "$root/srv/team room"
checkEqual "a share that is gone is seen" "Number of failures to match := 1" "$(failuresOf depotHost)"
setAside /etc/samba
check "depotHost restores" plugin depotHost -cmd restore -opt all -path "$metadata/depotHost" -log "$log"
checkEqual "the share is there again, with its attributes" "2770 33 80" "$(stat -c '%a %u %g' "$root/srv/team room")"

# --- host settings: never listed, so that the program cannot move an account file aside
newRoot
checkEqual "hostProfile lists no item" "" "$(grep -A1 '<array>' "$source_dir/services/descriptors/45-hostProfile.plist" |
  grep string)"
ln -s /usr/share/zoneinfo/UTC "$root/etc/localtime"
check "hostProfile backs up" backup hostProfile
cp "$root/etc/passwd" "$scratch/passwd"
echo 'intruder:x:0:0::/:/bin/sh' >>"$root/etc/passwd"
rm "$root/etc/localtime" "$root/etc/hosts"
checkEqual "three damages are three failures" "Number of failures to match := 3" "$(failuresOf hostProfile)"
check "hostProfile restores" plugin hostProfile -cmd restore -opt all -path "$metadata/hostProfile" -log "$log" -opt all
check "the accounts are back" cmp "$scratch/passwd" "$root/etc/passwd"
checkEqual "a link is back as a link" "/usr/share/zoneinfo/UTC" "$(readlink "$root/etc/localtime")"
checkContains "the damaged accounts are kept aside" intruder "$(cat "$root/etc/passwd.previous")"
checkContains "the version line stands in the descriptor" "Halyard (Halyard), Vantor Inc., Version" \
  "$(inRoot cat /private/etc/halyard/45-hostProfile.plist)"

# --- the three whose data are plain files
for service in postHost:/etc/postfix:/var/mail agendaHost:/etc/radicale:/var/lib/radicale \
  parleyHost:/etc/prosody:/var/lib/prosody; do
  IFS=: read -r name configuration data <<<"$service"
  newRoot
  put "$configuration/main.conf" 'setting = 1'
  put "$data/folder/item" 'content'
  chown -R 500:500 "$root$data"
  chmod 700 "$root$data/folder"
  check "$name backs up" backup "$name" "$configuration" "$data"
  rm -rf "${root:?}$data"
  setAside "$configuration"
  check "$name restores" plugin "$name" -cmd restore -opt all -path "$metadata/$name" -log "$log" -opt all
  checkEqual "$name is back" "Number of failures to match := 0" "$(failuresOf "$name")"
done

# --- what is wrong
check "an unknown command is refused" not plugin siteHost -cmd dance
check "a backup into a folder that is not there fails" not plugin siteHost -cmd backup -path /nowhere -log "$log"
put /private/etc/halyard/60-siteHost.plist '<plist version="1.0"><dict><key>ServiceName</key><string>siteHost</string>
<key>ConfigurationFiles</key><array><string>/etc/a&amp;b</string><string>/etc/c d</string></array></dict></plist>'
put '/etc/a&b' x
put '/etc/c d' y
check "paths of an edited descriptor are taken" backup siteHost '/etc/a&b' '/etc/c d'
checkEqual "they are compared" "Number of failures to match := 0" "$(failuresOf siteHost)"

finishTests
