#!/bin/sh
# The work of a run as a shell script, for the virtual device: the same external commands, and plain
# dd and cp for the copies. The benchmark compares the tool with it.
set -e
place=/data/vendor/minidump
partition=/dev/block/by-name/logdump
panic=$place/panic_log_floor
log=/mnt/vendor/qv_log/panic_log/QVpanic_0_floor
dd=/usr/bin/dd

$dd if=$partition of=$place/header.img bs=4096 count=10
$dd if=$partition of=$place/minidump.bin bs=1M count="$1" iflag=count_bytes
toybox mkdir -p $place/tmp $panic $log
while read -r name offset size; do
    $dd if=$partition of="$place/tmp/$name" bs=1M skip="$offset" count="$size" \
        iflag=skip_bytes,count_bytes
done </data/regions
tar -zcvf $place/minidump_floor.tar.gz -C $place minidump.bin
strings $place/tmp/md_KCONSOLE.BIN > $panic/last_kmsg.txt
cp $place/tmp/md_MSGRAM*.BIN $place/aop_dump
tar -zcvf $panic/aop_dump.tar.gz -C $place aop_dump
chmod -R 0771 $place
chown -R root:system $place || true  # an ordinary user cannot
rm -rf $place/tmp $place/header.img $place/minidump.bin $place/aop_dump/*
$dd if=/dev/zero of=$partition bs=1M count="$1" iflag=count_bytes
cp $panic/* $log/
tar -zcvf $log.tar.gz -C /mnt/vendor/qv_log/panic_log QVpanic_0_floor
