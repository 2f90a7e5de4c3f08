#!/bin/bash
# Tests what the workstation adds to the tool: host/virtual_device and scripts/demo.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'kill ${!-} 2>/dev/null || true; rm -rf "$work"' EXIT

fail() {
    echo "$*"
    exit 1
}

# expect STATUS PATTERN COMMAND...: fails unless the command ends with the status and its output
# contains what matches the pattern.
expect() {
    local status=0 output
    output=$("${@:3}" 2>&1) || status=$?
    # shellcheck disable=SC2053  # a pattern
    [[ $status -eq $1 && $output == *$2* ]] || fail "${*:3}: status $status, not $1 and '$2': $output"
}

# All is read only, so that a device which writes there does no harm.
expect 125 "ROOT is empty or the workstation's own /" \
    bwrap --ro-bind / / host/virtual_device /proc/self/root toybox true
expect 125 "unknown option: --none" host/virtual_device --none
expect 125 "no such program: /none" host/virtual_device "$work/a" /none
expect 125 "no such path: /none" host/virtual_device "$work/a" --bind /none sh

# A new device has an empty partition, the time zone of TZ, and nothing else of the caller's
# environment.
expect 0 "+0300*16777216*none" env TZ=XXX-3 HOSTS=1 host/virtual_device "$work/a" \
    sh -c 'date +%z; stat -c %s /dev/block/by-name/logdump; env | grep HOSTS || echo none'

# A device locks out others, even when its directory is removed, and ends with its caller.
bash -c '"$@"; true' - host/virtual_device "$work/a" sh -c 'echo >/data/started; sleep 60' &
until [ -e "$work/a/data/started" ]; do kill -0 $!; sleep 0.1; done
rm -r "$work/a"
expect 125 "another virtual device runs on $work/a" host/virtual_device "$work/a" toybox true
kill $!
flock -w 10 "$work/a.lock" true || fail "a device runs on without its caller"

expect 2 "the directory is not empty: $work" scripts/demo --output "$work"
expect 2 "no file or block device: /none" scripts/demo /none
expect 2 "more than one image: b" scripts/demo README.md b

expect 0 "== building*== the image*md_OTHER*== copying*== the run*Compression completed*exit status 0*\
== the properties*restart_reason=kernel_panic*== the partition*zeros: 159744*== the kernel console*\
Fatal exception*== the device's files*QVpanic*all regions*extract*sample.img DIRECTORY" scripts/demo
archive=$work/archive
cp build/demo/data/vendor/minidump/minidump_*.tar.gz "$archive"
expect 0 "all zeros: 159744 bytes" scripts/demo --output "$work/b" "$archive"
expect 11 $'packed*status 11*were set\nnone*not erased*none' scripts/demo README.md  # a second time
[[ $(scripts/demo README.md 2>&1) != *"all regions"* ]] || fail "regions without a dump"

# What a run could fill the disk with does not get to it.
head -c 1000 "$archive" >"$work/damaged"
expect 2 "damaged: get it again*not run" scripts/demo --output "$work/c" "$work/damaged"
build/release/minidump_image make "$work/short"
truncate -s 1000 "$work/short"
expect 2 "copied whole*not run" scripts/demo --output "$work/c" "$work/short"
expect 0 "" rmdir "$work/c"

# How far it is shows on a terminal only.
show="build/release/minidump_image show $archive"
expect 0 "MiB unpacked" script -qec "$show" /dev/null
[[ $($show 2>&1) != *unpacked* ]] || fail "progress without a terminal"
