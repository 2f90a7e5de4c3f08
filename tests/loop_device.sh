#!/bin/bash
# Runs tests on a loop device as the minidump partition:
# loop_device.sh [OPTION OF virtual_device]... TEST_PROGRAM [ARGUMENT]...
# Status 77 (skipped) where the machine has none. Also fails when the device's node was replaced, or
# nothing was written to it.
set -euo pipefail
here=$(dirname "$(realpath "$0")")
device='' work=$(mktemp -d)
trap '[ -z "$device" ] || losetup -d "$device"; rm -rf "$work"' EXIT
truncate -s 2M "$work/partition"
device=$(losetup -f --show "$work/partition") || { echo "skipped: no loop device"; exit 77; }
mkdir -p "$work/root/dev/block/by-name"
ln -s "$device" "$work/root/dev/block/by-name/logdump"
"$here/../host/virtual_device" "$work/root" "$@"
[ -b "$work/root/dev/block/by-name/logdump" ] || { echo "the node was replaced"; exit 1; }
! cmp -s -n 2M "$device" /dev/zero || { echo "the tests did not write to the device"; exit 1; }
