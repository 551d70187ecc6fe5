#!/usr/bin/env bash
# Runs inside the machine that tst_systemd.sh starts. The last line counts the checks that failed.
set -uo pipefail

export LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive PATH=/usr/sbin:/usr/bin:/sbin:/bin
source /trial/check.sh
property() { systemctl show -P "$1" queue.service; }

# wait_for SECONDS CONDITION...
wait_for() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.2
    done
}
is_active() { [ "$(property ActiveState)" = active ]; }
has_ended() { [ "$(property MainPID)" = 0 ]; }
is_restarted() {
    local process
    process=$(property MainPID)
    [ "$process" != 0 ] && [ "$process" != "$former" ] && is_active
}
remember_process() { former=$(property MainPID); }

# until_restarted TITLE: waits until another process has replaced the recorded one.
until_restarted() {
    if wait_for 60 is_restarted; then
        echo "PASS: $1"
    else
        echo "FAIL: $1"
        failures=$((failures + 1))
        systemctl status --no-pager queue.service
    fi
}

# set_unit LINE...: further lines of the section [Service] for the unit.
set_unit() {
    mkdir -p /run/systemd/system/queue.service.d
    printf '%s\n' '[Service]' "$@" >/run/systemd/system/queue.service.d/trial.conf
    systemctl daemon-reload
}

echo "The first process is $(cat /proc/1/comm), $(systemctl --version | head -n 1)"

# The dependencies of the packages are installed, since the build needs them; recommended packages
# may be missing.
dpkg -i --force-depends /trial/queue.deb /trial/stand.deb
check "the packages can be installed" test $? -eq 0
check "the unit is enabled" same "$(systemctl is-enabled queue.service)" enabled
check "the service is started, and ready" wait_for 20 is_active
check "it runs under its account" same "$(stat -c %U "/proc/$(property MainPID)")" queue

exposure=$(systemd-analyze --no-pager security queue.service | sed -n 's/.*exposure level[^:]*: \([0-9.]*\).*/\1/p')
check "its exposure is ${exposure:-unknown}, at most 2.5" awk -v level="${exposure:-10}" 'BEGIN { exit !(level <= 2.5) }'

# Deliveries of all types, by HTTP, TLS and TCP, converted certificates among them.
printf '[queue]\ntimeout = 1\n' >/tallocash/cash/queue/config/queue.d/trial.ini
chmod 644 /tallocash/cash/queue/config/queue.d/trial.ini
queue-stand --root / --write-settings
systemctl restart queue.service
check "it starts again" wait_for 20 is_active
queue-stand --root / >/trial/stand.log 2>&1
result=$(tail -n 1 /trial/stand.log)
types=$(sed -n 's/^Message types delivered: \([0-9]*\) of \1$/\1/p' <<<"$result")
check "under systemd every message type is delivered: $result" test "${types:-0}" -ge 58
if [ "${types:-0}" -lt 58 ]; then
    tail -n 20 /trial/stand.log
    for type in $(sed -n 's/^Not delivered: //p' /trial/stand.log | tr -d ,); do
        journalctl --no-pager -o cat -u queue.service | grep -F "[$type]" | head -n 30
    done
fi
check "nothing was refused for its rights" same \
    "$(journalctl --no-pager -u queue.service | grep -c -i -E 'permission denied|read-only file system')" 0

# It must not write outside its folders. Its view of the files is read through its root folder:
# nsenter would begin at the root of its mount namespace, which is outside of this machine when the
# machine is started in a chroot.
remember_process
view=/proc/$former/root
check "its view is this machine's" test -d "$view/trial"
check "its tree is read-only" \
    sh -c '! touch "$1/etc/queue-was-here" 2>/dev/null && ! touch "$1/usr/queue-was-here" 2>/dev/null' sh "$view"
check "the homes are hidden from it" same "$(ls -A "$view/root" 2>&1 | grep -v 'ermission denied')" ""

# The pause before a restart is ten seconds on a till.
set_unit RestartSec=1
kill -KILL "$former"
until_restarted "killed, it is started again"
remember_process
kill -TERM "$former"
until_restarted "ended by itself, it is started again"

# A service that hangs does not notify the watchdog. A till's watchdog waits longer.
check "the unit has a watchdog" test "$(property WatchdogUSec)" != 0
set_unit RestartSec=1 WatchdogSec=3
systemctl restart queue.service
check "with a short watchdog it starts" wait_for 20 is_active
remember_process
sleep 8
check "the watchdog leaves it alone while it is well" same "$(property MainPID)" "$former"
kill -STOP "$former"
until_restarted "hung, it is started again by the watchdog"

# A delivery takes longer than the watchdog waits: the end of the service waits for it. It is also
# longer than a stop may take, and the service asks for more time.
set_unit RestartSec=1 WatchdogSec=3 TimeoutStopSec=3
systemctl restart queue.service
check "with a short stop it starts" wait_for 20 is_active
queue-stand --root / --type heineken --slow 12 --for 60 >/trial/slow.log 2>&1 &
stand=$!
sending() { journalctl --no-pager -u queue.service -o cat -n 5 | grep -q -F '[heineken] Отправка сообщения'; }
check "a slow delivery begins" wait_for 20 sending
began=$SECONDS
systemctl stop queue.service
took=$((SECONDS - began))
check "stopping waits for the delivery: $took s" test "$took" -ge 4
check "the end was in good order" same "$(property Result) $(property ActiveState)" "success inactive"
check "its message is gone" same \
    "$(sqlite3 /tallocash/cash/queue/queues.db "SELECT COUNT(*) FROM message WHERE type = 'heineken'")" 0
kill "$stand" 2>/dev/null
wait "$stand" 2>/dev/null

systemctl start queue.service
check "it starts once more" wait_for 20 is_active
dpkg -P queue queue-stand >/trial/purge.log 2>&1
check "the packages can be purged" test $? -eq 0
check "the service has ended" wait_for 20 has_ended
check "the unit is gone" same "$(systemctl is-enabled queue.service 2>/dev/null)" ""

echo "$failures checks failed"
