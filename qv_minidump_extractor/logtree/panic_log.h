#pragma once

#include "logtree/log_types.h"

// Files this run's panic directory as the next panic log: opens the log, copies the directory's
// files, closes the log. Nothing is copied when the log cannot be opened.
void copy_to_qv_log();

// Copies the files at the top of this run's panic directory to the directory of the log of `type`
// that was opened last; an ERROR line when there is none. A failed copy is not reported. A command
// of 512 characters or more is truncated and still run. When kLastDumpProperty has its default
// value, such a command is first replaced by a recursive copy, with a WARNING line.
void copy_panic_log(core_log_type type);
