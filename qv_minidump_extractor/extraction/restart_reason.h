#pragma once

// Publishes the restart record, "tmp/MD_RESTARTINFO.BIN" in the working directory, as the property
// vendor.restart_reason: its text up to the first zero byte, at most 100 bytes. A missing record
// sets the empty value; a text longer than a property takes (91 bytes) leaves the old value.
void get_restart_info();
