#!/usr/bin/env bash
# tst_package.sh CPACK BUILD-FOLDER VERSION: makes the packages and tests them in a root folder of
# its own: contents, lintian, installation, every message type delivered by the installed service
# under its account, an upgrade, removal, purge. Changes no files of the machine, needs no root
# rights, and says what it left out without them.
set -uo pipefail

cpack=$1
build=$2
version=$3

for tool in dpkg-deb dpkg-shlibdeps file systemd-sysusers systemd-tmpfiles deb-systemd-helper; do
    command -v "$tool" >/dev/null || {
        echo "SKIP: $tool is not installed, so packages cannot be made and installed here"
        exit 77
    }
done

work=$(mktemp -d)
chmod 755 "$work"
root=$work/root
service=
end_service() {
    local status=0
    if [ -n "$service" ]; then
        kill -TERM "$service"
        wait "$service" || status=$?
    fi
    service=
    return "$status"
}
trap 'end_stands; end_service >/dev/null 2>&1; rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# shellcheck source=tests/support/check.sh
source "$(dirname "${BASH_SOURCE[0]}")/../support/check.sh"
give_up() {
    echo "FAIL: $1"
    [ $# -lt 2 ] || cat "$2"
    exit 1
}
# shellcheck source=tests/packaging/firstday.sh
source "$(dirname "${BASH_SOURCE[0]}")/firstday.sh"
lists() { grep -qxF -- "$2" <<<"$1"; }
contains() { grep -qF -- "$2" <<<"$1"; }
absent() { [ ! -e "$1" ] && [ ! -L "$1" ]; }

# --- The files

"$cpack" --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/cpack.log" 2>&1 \
    || give_up "cpack makes the packages" "$work/cpack.log"
architecture=$(dpkg --print-architecture)
deb=$work/packages/queue_${version}_$architecture.deb
stand_deb=$work/packages/queue-stand_${version}_$architecture.deb
check "the package of the service is there" test -f "$deb"
check "the package of the stand is there" test -f "$stand_deb"

# Simulates a machine where cpack does not find the tool; only PATH is searched.
mkdir "$work/tools"
ln -s "$(command -v file)" "$(command -v gzip)" "$(command -v strip)" "$work/tools"
PATH=$work/tools "$cpack" -D CMAKE_FIND_USE_CMAKE_SYSTEM_PATH=FALSE --config "$build/CPackConfig.cmake" \
    -B "$work/poor" >"$work/cpack.log" 2>&1
check "without dpkg-shlibdeps cpack fails" test $? -ne 0
check "without dpkg-shlibdeps cpack says so" grep -q 'dpkg-shlibdeps is not installed' "$work/cpack.log"
check "without dpkg-shlibdeps there is no package" same "$(find "$work/poor" -maxdepth 1 -name '*.deb' 2>/dev/null)" ""

contents=$(dpkg-deb --fsys-tarfile "$deb" | tar -t | sed 's/^\.//' | grep -v '/$')
expected_files=(
    /etc/logrotate.d/queue
    /usr/bin/queue
    /usr/lib/queue/write-metrics
    /usr/lib/systemd/system/queue-metrics.service
    /usr/lib/systemd/system/queue-metrics.timer
    /usr/lib/systemd/system/queue.service
    /usr/lib/sysusers.d/queue.conf
    /usr/lib/tmpfiles.d/queue.conf
    /usr/share/doc/queue/README.md
    /usr/share/doc/queue/SECURITY.md
    /usr/share/doc/queue/changelog.gz
    /usr/share/doc/queue/copyright
    /usr/share/doc/queue/docs/control.md
    /usr/share/doc/queue/docs/fleet.md
    /usr/share/doc/queue/docs/fleet.ru.md
    /usr/share/doc/queue/docs/installation.md
    /usr/share/doc/queue/docs/integration.md
    /usr/share/doc/queue/docs/integration.ru.md
    /usr/share/doc/queue/docs/log.md
    /usr/share/doc/queue/docs/message-types.md
    /usr/share/doc/queue/docs/operations.md
    /usr/share/doc/queue/docs/operations.ru.md
    /usr/share/doc/queue/docs/settings.md
    /usr/share/doc/queue/examples/log4qt.properties.sample
    /usr/share/doc/queue/examples/queue.ini.sample
    /usr/share/doc/queue/examples/queue.nft
    /usr/share/man/man8/queue.8.gz
    /usr/share/queue/fleet/alerts-test.yml
    /usr/share/queue/fleet/alerts.yml
    /usr/share/queue/fleet/dashboard.json
    /usr/share/queue/sql/mariadb.sql
    /usr/share/queue/sql/mysql.sql
    /usr/share/queue/sql/sqlite.sql
)
if [ -x "$build/queuectl" ]; then
    expected_files+=(/usr/bin/queuectl /usr/share/man/man1/queuectl.1.gz
        /usr/share/bash-completion/completions/queuectl)
fi
check "the service's package holds its files and no others" \
    same "$(sort <<<"$contents")" "$(printf '%s\n' "${expected_files[@]}" | sort)"
stand_contents=$(dpkg-deb --fsys-tarfile "$stand_deb" | tar -t | sed 's/^\.//')
for file in /usr/bin/queue-stand /usr/share/man/man1/queue-stand.1.gz \
    /usr/share/queue-stand/scenarios/forwarding/heineken.json \
    /usr/share/doc/queue-stand/copyright; do
    check "the stand's package holds $file" lists "$stand_contents" "$file"
done
check "everything belongs to root, and only root may write" same \
    "$(for file in "$deb" "$stand_deb"; do dpkg-deb -c "$file"; done \
        | awk '$2 != "root/root" || $1 ~ /^.....w|^........w/ { print $6 }')" ""

depends=$(dpkg-deb -f "$deb" Depends)
for package in libqt6sql6-sqlite openssl libqt6core6 libcurl4 libinih1 "systemd | systemd-standalone-sysusers"; do
    check "the service needs $package" contains "$depends" "$package"
done
# apt installs what is recommended, and logrotate brings cron and a mail server.
check "nothing is recommended" same "$(dpkg-deb -f "$deb" Recommends)" ""
for package in libqt6sql6-mysql logrotate; do
    check "$package is suggested" contains "$(dpkg-deb -f "$deb" Suggests)" "$package"
done
dpkg-deb -e "$deb" "$work/control"
check "the one file of settings that is installed belongs to the administrator" \
    same "$(cat "$work/control/conffiles")" /etc/logrotate.d/queue
for script in postinst prerm postrm; do
    check "$script stops at its first error" grep -qx 'set -e' "$work/control/$script"
    check "$script has no syntax error" sh -n "$work/control/$script"
done
check "the changelog tells of this version" contains \
    "$(dpkg-deb --fsys-tarfile "$deb" | tar -xO ./usr/share/doc/queue/changelog.gz | zcat | head -n 1)" \
    "queue ($version) "
unit_text=$(dpkg-deb --fsys-tarfile "$deb" | tar -xO ./usr/lib/systemd/system/queue.service)
check "the unit starts the installed program" lists "$unit_text" ExecStart=/usr/bin/queue
check "the unit names its documents" contains "$unit_text" "Documentation=man:queue(8) man:queuectl(1) "

dpkg-deb -x "$deb" "$work/unpacked"
for page in man8/queue.8 man1/queuectl.1; do
    check "$page is of this version" contains "$(zcat "$work/unpacked/usr/share/man/$page.gz" | head -n 1)" "queue $version\""
done
check "the pages lead to one another" same "$(zcat "$work"/unpacked/usr/share/man/man8/queue.8.gz | grep -c '^.BR queuectl (1)') \
$(zcat "$work"/unpacked/usr/share/man/man1/queuectl.1.gz | sed -n '/SEE ALSO/,$p' | grep -c '^.BR queue (8)')" "1 1"
if [ -x "$build/queuectl" ]; then
    check "the program prints the version of the package" contains "$("$work/unpacked/usr/bin/queuectl" --version)" "$version"
fi

# glibc checks only optimized programs.
is_optimized() {
    grep -q "^CMAKE_BUILD_TYPE:.*=Rel" "$build/CMakeCache.txt"
}

# The hardening of Debian's own packages.
for program in "$work"/unpacked/usr/bin/*; do
    name=${program##*/}
    dynamic=$(readelf -W -d "$program")
    check "$name is loaded anywhere and bound at its start" contains "$dynamic" "NOW PIE"
    if is_optimized; then
        check "$name has checked copies of the functions of libc" contains "$(readelf -W --dyn-syms "$program")" "_chk@"
    fi
done

# Programs that say one version in a package that says another would mislead their users.
"$cpack" -D CPACK_PACKAGE_VERSION="$version.9" --config "$build/CPackConfig.cmake" -B "$work/other" \
    >"$work/cpack.log" 2>&1
check "a version that the programs do not have is refused" test $? -ne 0
check "and how it is done is said" grep -q -e "-DQUEUE_VERSION=$version.9" "$work/cpack.log"
check "and there is no such package" same "$(find "$work/other" -maxdepth 1 -name '*.deb' 2>/dev/null)" ""

if command -v lintian >/dev/null; then
    root_too=()
    [ "$(id -u)" -ne 0 ] || root_too=(--allow-root)
    check "lintian finds no errors" lintian "${root_too[@]}" --profile debian --fail-on error "$deb" "$stand_deb"
    ! is_optimized || check "lintian misses no hardening" same \
        "$(lintian "${root_too[@]}" --profile debian -i -I "$deb" "$stand_deb" | grep hardening)" ""
else
    echo "SKIP: lintian is not installed"
fi

# --- The installation

# Scripts run outside the root folder and get it in DPKG_ROOT, as for an image of another machine.
# The root contains only these packages, not their dependencies.
mkdir -p "$root"/var/lib/dpkg/{info,updates} "$root"/{etc,tmp}
chmod 1777 "$root/tmp"
touch "$root/var/lib/dpkg/status"
export PATH=$PATH:/usr/sbin:/sbin
package() {
    dpkg --root="$root" --log="$work/dpkg.log" --force-script-chrootless --force-depends \
        --force-not-root --force-confold "$@" >"$work/output" 2>&1 </dev/null
}
state() { dpkg-query --admindir="$root/var/lib/dpkg" -W -f='${db:Status-Status}' "$1" 2>/dev/null || echo none; }

package -i "$deb" "$stand_deb" || give_up "the packages can be installed" "$work/output"
check "the service is installed" same "$(state queue)" installed
check "the stand is installed" same "$(state queue-stand)" installed
account=$(grep '^queue:' "$root/etc/passwd")
check "there is an account" test -n "$account"
check "nobody can log in to it" contains "$account" nologin
uid=$(cut -d: -f3 <<<"$account")
gid=$(cut -d: -f4 <<<"$account")
till=$root/tallocash/cash/queue
is_root=
[ "$(id -u)" -ne 0 ] || is_root=yes
[ -n "$is_root" ] || echo "SKIP: the owners of the folders, and the service under its own account, need root rights"
for row in ":2770" "config:2750" "config/queue.d:2750" "log:2770"; do
    folder=$till/${row%%:*}
    check "/tallocash/cash/queue/${row%%:*} is there" test -d "$folder"
    if [ -n "$is_root" ]; then
        check "  with its owner and rights" same "$(stat -c '%u:%g %a' "$folder")" "$uid:$gid ${row##*:}"
    fi
done
link=$root/etc/systemd/system/multi-user.target.wants/queue.service
check "the unit is enabled" test -L "$link"
check "no settings are there but the samples, and no rows" same \
    "$(find "$root/tallocash" -type f -exec sh -c 'for f; do echo "${f##*/}: $(grep -c -v "^;" "$f")"; done' sh {} + | sort)" \
    "$(printf '%s\n' 'queues.db: 0' 'secrets.ini: 0')"
secrets=$till/config/queue.d/secrets.ini
check "what is secret only the service reads" same "$(stat -c %a "$secrets")" 600
if [ -n "$is_root" ]; then
    check "it belongs to the service" same "$(stat -c %u:%g "$secrets")" "$uid:$gid"
    # A member of the group, such as the till application.
    member() { setpriv --reuid=65534 --regid=65534 --groups="$gid" "$@"; }
    check "a member of the group may write rows" member test -w "$till/queues.db"
    check "a member of the group may not read the secrets" member sh -c '! cat "$1" 2>/dev/null' sh "$secrets"
fi

# --- Deliveries

default_port=28085
port=$default_port
while (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do port=$((port + 1)); done
settings=$till/config/queue.d/local.ini

# Runs the program by the unit's command, with the root folder before every path. Under systemd it
# runs in tst_systemd.sh.
start_service() {
    local command
    command=$(sed -n 's/^ExecStart=//p' "$root/usr/lib/systemd/system/queue.service")
    local as_queue=()
    [ -z "$is_root" ] || as_queue=(setpriv --reuid="$uid" --regid="$gid" --clear-groups)
    (
        cd "$till" || exit 1
        umask "$(sed -n 's/^UMask=//p' "$root/usr/lib/systemd/system/queue.service")"
        exec "${as_queue[@]}" env QUEUE_ROOT="$root" "$root$command"
    ) >"$work/service.log" 2>&1 </dev/null &
    service=$!
}
stand() {
    LC_ALL=C.UTF-8 "$root/usr/bin/queue-stand" --root "$root" --scenarios "$root/usr/share/queue-stand/scenarios" "$@"
}

if [ ! -x "$root/usr/bin/queuectl" ]; then
    echo "SKIP: queuectl is not built, so it answers nothing"
else
    if [ "$port" -ne "$default_port" ]; then
        echo "SKIP: port $default_port is in use, so the service has one setting, its port"
        printf '[queue]\nport = %s\n' "$port" >"$settings"
        chmod 644 "$settings"
    fi
    start_service || give_up "the service starts without settings"
    first_day
    check "it ends in good order" end_service
fi

printf '[queue]\ntimeout = 1\nport = %s\n' "$port" >"$settings"
chmod 644 "$settings"
stand --write-settings || give_up "the stand writes its settings"
start_service || give_up "the service starts"
stand >"$work/stand.log" 2>&1
check "the stand is content" test $? -eq 0
result=$(tail -n 1 "$work/stand.log")
types=$(sed -n 's/^Message types delivered: \([0-9]*\) of \1$/\1/p' <<<"$result")
check "the installed service delivers every message type: $result" test "${types:-0}" -ge 58
[ "${types:-0}" -ge 58 ] || { tail -n 20 "$work/stand.log"; tail -n 20 "$work/service.log"; }
if [ -n "$is_root" ]; then
    check "the database belongs to the service" same "$(stat -c %u "$till/queues.db")" "$uid"
    check "the till's group may write into it" same "$(stat -c %A "$till/queues.db" | cut -c 5-10)" "rw----"
fi
check "the service ends in good order" end_service

# --- Upgrade

# The next version, which also has another settings file.
dpkg-deb -R "$deb" "$work/next"
sed -i "s/^Version: .*/Version: $version+next/" "$work/next/DEBIAN/control"
echo "# A line of the next version." >>"$work/next/etc/logrotate.d/queue"
(cd "$work/next" && find . -path ./DEBIAN -prune -o -type f -print | sed 's|^\./||' | xargs md5sum >DEBIAN/md5sums)
dpkg-deb --root-owner-group -b "$work/next" "$work/next.deb" >/dev/null

echo "# Changed on this till." >>"$root/etc/logrotate.d/queue"
logrotate_before=$(cat "$root/etc/logrotate.d/queue")
settings_before=$(cat "$settings")
database_before=$(sha256sum <"$till/queues.db")
rm "$link" # as `systemctl disable` does
package -i "$work/next.deb" || give_up "the next version can be installed" "$work/output"
check "the next version is installed" same \
    "$(dpkg-query --admindir="$root/var/lib/dpkg" -W -f='${Version}' queue)" "$version+next"
check "an upgrade keeps the settings" same "$(cat "$settings")" "$settings_before"
check "an upgrade keeps a changed log rotation" same "$(cat "$root/etc/logrotate.d/queue")" "$logrotate_before"
check "an upgrade keeps the database" same "$(sha256sum <"$till/queues.db")" "$database_before"
check "an upgrade leaves a disabled unit disabled" absent "$link"

# --- Removal

package -r queue || give_up "the package can be removed" "$work/output"
check "removal takes the program" absent "$root/usr/bin/queue"
check "removal keeps the database" test -f "$till/queues.db"
check "removal keeps the settings" same "$(cat "$settings")" "$settings_before"
check "removal keeps the log rotation" test -f "$root/etc/logrotate.d/queue"

package -i "$deb" || give_up "the package can be installed again" "$work/output"
check "installed again, it finds its settings" same "$(cat "$settings")" "$settings_before"

# --- Purge

# Files of others in the service's folders and beside them, and a planted link in the folder that
# everybody can write to.
mkdir -p "$work/elsewhere"
touch "$till/log/till.txt" "$work/elsewhere/certificate.pem" "$till/log/queue.log" "$till/log/queue.log.1.gz" \
    "$till/queue.lock" "$till/queues.db.replaced-20260131-120000-wal" \
    "$till/journal.db" "$till/journal.db-wal" "$till/journal.db-shm" "$till/journal.db.damaged-20260131-120000" \
    "$till/journal.db.damaged-20260131-120000-wal" \
    "$till/queues.db.before-restore-20260131-120000" "$till/ids.json" "$root/tmp/queue_spasibo_0123.pem"
rm -rf "$root/tmp/spasibo-certs"
ln -s "$work/elsewhere" "$root/tmp/spasibo-certs"
package -P queue queue-stand || give_up "the packages can be purged" "$work/output"
check "nothing of the service is installed" same "$(state queue)" none
left=$(find "$root" \( -path "$root/var" -o -path "$root/stand-*" -o -path "$root/certs" \) -prune -o ! -type d -print | sed "s|^$root||" | sort)
check "purging leaves what is not the service's" same "$left" "$(
    {
        printf '%s\n' /tallocash/cash/queue/log/till.txt /tmp/spasibo-certs
        # The account stays.
        (cd "$root" && find etc -maxdepth 1 \( -name 'passwd*' -o -name 'group*' -o -name 'shadow*' \
            -o -name 'gshadow*' -o -name .pwd.lock \) -printf '/%p\n')
        # The stand's settings for the till.
        (cd "$root" && find tallocash tmp -type f ! -path 'tallocash/cash/queue/*' -printf '/%p\n')
    } | sort
)"
check "purging follows no link" test -f "$work/elsewhere/certificate.pem"
check "purging forgets that the unit was disabled" same "$(find "$root/var/lib/systemd" -type f 2>/dev/null)" ""

# --- A till whose application owns the folders above, and members of the group who lay traps

# $link_target is like a folder of the system in which only root may delete.
link_target=$work/system
rm -rf "$root/tallocash"
mkdir -p "$root/tallocash/cash" "$link_target/queue.d"
touch "$link_target/system.log" "$link_target/system.ini" "$link_target/queue.d/system.ini"
[ -z "$is_root" ] || chown -R 65534:65534 "$root/tallocash"
package -i "$deb" || give_up "the package can be installed where the till's user owns the folders" "$work/output"
if [ -n "$is_root" ]; then
    account=$(grep '^queue:' "$root/etc/passwd" | cut -d: -f3,4)
    for row in ":2770" "config:2750" "config/queue.d:2750" "config/queue.d/secrets.ini:600" "log:2770" \
        "queues.db:660"; do
        check "below the till's own folder there is ${row%%:*} with its owner and rights" \
            same "$(stat -c '%u:%g %a' "$till/${row%%:*}" 2>&1)" "$account ${row##*:}"
    done
    check "the till's own folder stays the till's" same "$(stat -c %u "$root/tallocash/cash")" 65534
    touch "$till/config/queue.d/local.ini"
    chmod 2755 "$till/log"
    package -i "$work/next.deb" || give_up "the next version can be installed there" "$work/output"
    check "an upgrade keeps the settings there" test -f "$till/config/queue.d/local.ini"
    check "an upgrade keeps rights that somebody has set there" same "$(stat -c %a "$till/log")" 2755
fi
rm -rf "$till/log" "$till/config"
ln -s "$link_target" "$till/log"
ln -s "$link_target" "$till/config"
package -P queue || give_up "the package can be purged there" "$work/output"
for file in system.log system.ini queue.d/system.ini; do
    check "purging deletes nothing beyond a link in the service's folder: $file" test -f "$link_target/$file"
done
check "purging takes the database there" absent "$till/queues.db"

echo "$failures checks failed"
[ "$failures" -eq 0 ]
