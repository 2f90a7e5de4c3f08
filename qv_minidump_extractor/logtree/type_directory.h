#pragma once

#include "logtree/log_types.h"

// Opens a new log of `type`: makes the type's directory, counts and prunes the old logs, and makes
// the new log directory, whose paths are then in log_type_table. Returns 0; -1 when a step failed
// (the later ones are not tried); kBadLogType.
int prepare_type_log_and_dir(core_log_type type);

// Closes this run's log of `type` by packing its directory into an archive beside it. A panic log's
// directory is kept, any other is removed. Does nothing, with an ERROR line, when no log was
// opened.
void clean_type_log_and_dir(core_log_type type);
