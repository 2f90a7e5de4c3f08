# shellcheck shell=sh
# Runs the shell command $COMMAND at the time $CLOCK, as the device's init does: in a process group
# of its own, which is killed when the command ends. The exit status is the command's.

# libfaketime sets the clock. The sanitizer's library must allow it to come first.
export LD_PRELOAD="/usr/\$LIB/faketime/libfaketime.so.1" FAKETIME="2024-01-07 $CLOCK"
export NO_FAKE_STAT=1 FAKETIME_DONT_FAKE_MONOTONIC=1 ASAN_OPTIONS=verify_asan_link_order=0
# A caller may have silenced the log. The tool must not heed it.
export ANDROID_LOG_TAGS='*:s'

set -m  # a background job gets a process group, with its own number
(eval "$COMMAND") &
wait $!
status=$?
while kill -9 -$! 2>/dev/null; do :; done  # until nothing of the group is left
exit $status
