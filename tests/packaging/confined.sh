#!/usr/bin/env bash
# confined.sh RUNNER CONFINE SERVICE UNIT SCENARIOS: scenarios against the service as its unit confines it.
set -euo pipefail

runner=$1
scenarios=$5
export QUEUE_PROGRAM=$2 CONFINED_PROGRAM=$3 CONFINED_UNIT=$4

if ! command -v systemd-analyze >/dev/null; then
    echo "SKIP: systemd-analyze is not installed, so nobody says which system calls the unit allows"
    exit 77
fi
if [ "$(id -u)" -ne 0 ] || ischroot; then
    echo "Without root, and in a chroot, the tree is not made read-only; the rest is tried."
fi
# The search for leaks attaches to its own process, a call that the unit forbids: a build with
# AddressSanitizer would never end. The scenarios outside search for leaks.
export ASAN_OPTIONS="${ASAN_OPTIONS:-}:detect_leaks=0"
"$runner" "$scenarios/forwarding/cardlab.json" \
    "$scenarios/loyalty/goldcrown.json" "$scenarios/payment/platiqr.json" \
    "$scenarios/retail/dssl.json" "$scenarios/retail/eps.json"
