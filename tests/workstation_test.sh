#!/bin/bash
# Tests what keeps host/virtual_device and scripts/demo away from other files of the workstation.
# Nothing is installed or built: of the demo a copy runs, which waits where it calls scripts/setup.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'kill ${!-} 2>/dev/null || true; rm -rf "$work"' EXIT

# expect WHAT RESULT COMMAND...: ends the test if the command's "STATUS: OUTPUT" is not RESULT.
expect() {
    local status=0 output
    output=$("${@:3}" 2>&1 </dev/null) || status=$?
    [ "$status: $output" = "$2" ] && return
    printf '%s\n  expected  %s\n  got       %s\n' "$1" "$2" "$status: $output"
    exit 1
}

# All is read only, so that a device which writes there says so, and does no harm.
for root in "" / // /. /proc/self/root; do
    expect "ROOT '$root'" "125: virtual_device: ROOT is empty or the workstation's own /: '$root'" \
        bwrap --ro-bind / / host/virtual_device "$root" toybox true
done

expect "no program" "125: virtual_device: no such program: none" host/virtual_device "$work/a" none

coproc device { exec host/virtual_device "$work/root" sh -c 'echo started; read line'; }
read -r _ <&"${device[0]}"
rm -rf "$work/root"
expect "device while one runs" "125: virtual_device: another virtual device runs on $work/root" \
    host/virtual_device "$work/root" toybox true
kill $!
wait $! || true

mkdir -p "$work"/{scripts,build/demo/mine,full/mine}
cp scripts/{common,demo} "$work/scripts"
ln -s /bin/cat "$work/scripts/setup"
coproc demo { exec "$work/scripts/demo"; }
read -r _ <&"${demo[0]}"
cd "$work"
expect "demo while one runs" "2: demo: another demo or virtual device runs on $PWD/build/demo" scripts/demo
expect "--output" "2: demo: the directory is not empty: $PWD/full" scripts/demo --output full
expect "files of both" "0: " test -d build/demo/mine -a -d full/mine
rm -r build/demo
expect "demo after its directory was removed" "2: demo: another demo or virtual device runs on $PWD/build/demo" scripts/demo
