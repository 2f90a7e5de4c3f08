#!/bin/sh
# shellcheck disable=SC2086  # $tool and $program are a command with its arguments
# The benchmark's runs, inside the virtual device: measure.sh BENCH BUILD BYTES RUNS, with the
# directories of this script and of the programs, and the size of the dump. What is compared runs in
# turn: each round leaves a CSV file of hyperfine in /data/bench.
set -e
bench=$1
build=$2
bytes=$3
runs=$4
dd=/usr/bin/dd
partition=/dev/block/by-name/logdump
minidump_dir=/data/vendor/minidump
tool="$build/qv_minidump_extractor x $minidump_dir"
round() {
    # A row of hyperfine's CSV begins with the command and its mean time in seconds.
    name=$1
    shift
    /usr/bin/hyperfine -N --runs 1 --style none --export-csv "/data/bench/$name" "$@" >/dev/null
}

blocks=$((bytes / 4096))
for run in $(toybox seq "$runs"); do
    round "copy.$run" "$build/dump_dd /data/image /data/copy $blocks" \
        "$dd if=/data/image of=/data/copy bs=4096 count=$blocks" \
        "$dd if=/data/image of=/data/copy bs=1M"
done
for run in $(toybox seq "$runs"); do
    $dd if=/dev/zero of=$partition bs=4096 count=10 2>/dev/null
    # -i: status 11 is expected here; hyperfine still warns of it.
    round "none.$run" -i "$tool" "$dd if=$partition of=/data/copy bs=4096 count=10" \
        /usr/bin/true 2>/dev/null
done
fresh="sh -c 'cp /data/image $partition; rm -rf $minidump_dir/minidump_* $minidump_dir/panic_log_* /mnt/vendor/qv_log'"
for run in $(toybox seq "$runs"); do
    round "run.$run" --prepare "$fresh" "$tool" "sh $bench/floor.sh $bytes"
done
cp /data/image $partition
/usr/bin/time -f %M -o /data/bench/memory $tool >/dev/null
# A small partition whose first region claims 2^31 - 1 bytes.
toybox rm $partition
"$build/minidump_image" make $partition
toybox printf '\377\377\377\177' | $dd of=$partition bs=1 seek=76 conv=notrunc 2>/dev/null
/usr/bin/time -f %M -o /data/bench/memory.damaged $tool >/dev/null
for program in "$build/dump_dd /data/image /data/copy $blocks" \
    "$dd if=/data/image of=/data/copy bs=4096 count=$blocks"; do
    /usr/bin/strace -c -e trace=read,readv,write,writev -U calls -o /data/bench/calls $program 2>/dev/null
    toybox tail -n 1 /data/bench/calls >>/data/bench/calls.total
done
