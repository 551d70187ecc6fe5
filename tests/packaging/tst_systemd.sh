#!/usr/bin/env bash
# tst_systemd.sh CPACK BUILD-FOLDER VERSION: the packages on a machine whose first process is
# systemd: installs them, starts, confines, restarts, watches and stops the service by its unit,
# delivers every message type, and removes the packages. The machine is a container with the files
# of this one; its writes stay in memory, its network has only a loopback, and it ends with the
# test.
set -uo pipefail

cpack=$1
build=$2
version=$3
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

skip() {
    echo "SKIP: $1"
    exit 77
}

for tool in systemd-nspawn dpkg-deb unshare ischroot; do
    command -v "$tool" >/dev/null || skip "$tool is not installed, so there is no machine with systemd"
done
[ -x /lib/systemd/systemd ] || skip "systemd is not installed"
[ "$(id -u)" -eq 0 ] || skip "without root rights no container can be started"

# All mounts are in a namespace that ends with this script.
if [ "${OWN_MOUNTS:-}" != yes ]; then
    # A container that is started in a chroot can reach the files outside of it. Checked before the
    # mounts differ from those of the first process.
    in_chroot=0
    ischroot || in_chroot=$?
    [ "$in_chroot" -eq 1 ] || skip "this is a chroot, or may be one, and a container could reach what is outside of it"
    unshare --mount true 2>/dev/null || skip "no mount namespace can be made here"
    OWN_MOUNTS=yes exec unshare --mount "$0" "$@"
fi

work=$(mktemp -d)
container=
end_container() {
    if [ -n "$container" ]; then
        kill -TERM "$container" 2>/dev/null
        wait "$container" 2>/dev/null
    fi
    umount -R "$work/machine" "$work/memory" 2>/dev/null
    rm -rf --one-file-system "$work"
}
trap end_container EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

"$cpack" --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/cpack.log" 2>&1 || {
    echo "FAIL: cpack makes the packages"
    cat "$work/cpack.log"
    exit 1
}

mkdir "$work/memory" "$work/machine"
mount -t tmpfs tmpfs "$work/memory" || skip "no file system in memory can be mounted here"
mkdir "$work/memory/changes" "$work/memory/work"
mount -t overlay overlay "$work/machine" \
    -o "lowerdir=/,upperdir=$work/memory/changes,workdir=$work/memory/work" \
    || skip "this machine's files cannot be laid under a container's"
machine=$work/machine

# No service of this machine starts there, not even an installed queue service.
rm -rf "$machine"/etc/systemd/system/* "$machine/tallocash" "$machine/usr/sbin/policy-rc.d"
mkdir -p "$machine/trial"
cp "$here/systemd-trial.sh" "$machine/trial/trial.sh"
cp "$here/../support/check.sh" "$machine/trial/check.sh"
cp "$work/packages/queue_${version}_$(dpkg --print-architecture).deb" "$machine/trial/queue.deb"
cp "$work/packages/queue-stand_${version}_$(dpkg --print-architecture).deb" "$machine/trial/stand.deb"
cat >"$machine/etc/systemd/system/trial.service" <<'TEXT'
[Service]
Type=oneshot
ExecStart=/bin/bash /trial/trial.sh
ExecStopPost=/bin/systemctl poweroff --no-block
StandardOutput=file:/trial/log
StandardError=file:/trial/log
TEXT
cat >"$machine/etc/systemd/system/trial.target" <<'TEXT'
[Unit]
Requires=basic.target
After=basic.target
Wants=trial.service
TEXT

timeout --kill-after=10 240 systemd-nspawn --quiet --register=no --keep-unit --private-network --boot --directory="$machine" \
    --machine="queue-trial-$$" systemd.unit=trial.target >"$work/console" 2>&1 </dev/null &
container=$!
wait "$container"
container=

if [ ! -s "$machine/trial/log" ]; then
    tail -n 20 "$work/console"
    skip "systemd does not come up in a container here"
fi
cat "$machine/trial/log"
tail -n 1 "$machine/trial/log" | grep -qx "0 checks failed"
