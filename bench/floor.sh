#!/bin/sh
# The work of a run as a shell script, for the virtual device: the same kinds of command, and plain
# dd and cp for the copies. The benchmark compares the tool with it.
set -e
minidump_dir=/data/vendor/minidump
partition=/dev/block/by-name/logdump
panic=$minidump_dir/panic_log_floor
log=/mnt/vendor/qv_log/panic_log/QVpanic_0_floor
dd=/usr/bin/dd

$dd if=$partition of=$minidump_dir/header.img bs=4096 count=10
$dd if=$partition of=$minidump_dir/minidump.bin bs=1M count="$1" iflag=count_bytes
toybox mkdir -p $minidump_dir/tmp $panic $log
while read -r name offset size; do
    $dd if=$partition of="$minidump_dir/tmp/$name" bs=1M skip="$offset" count="$size" \
        iflag=skip_bytes,count_bytes
done </data/regions
tar -zcvf $minidump_dir/minidump_floor.tar.gz -C $minidump_dir minidump.bin
strings $minidump_dir/tmp/md_KCONSOLE.BIN > $panic/last_kmsg.txt
cp $minidump_dir/tmp/md_MSGRAM*.BIN $minidump_dir/aop_dump
tar -zcvf $panic/aop_dump.tar.gz -C $minidump_dir aop_dump
chmod -R 0771 $minidump_dir
chown -R root:system $minidump_dir || true  # an ordinary user cannot
rm -rf $minidump_dir/tmp $minidump_dir/header.img $minidump_dir/minidump.bin $minidump_dir/aop_dump/*
$dd if=/dev/zero of=$partition bs=1M count="$1" iflag=count_bytes
cp $panic/* $log/
tar -zcvf $log.tar.gz -C /mnt/vendor/qv_log/panic_log QVpanic_0_floor
