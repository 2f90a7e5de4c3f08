#include "common/run_values.h"

const std::string logdump_partition_path = "/dev/block/by-name/logdump";
std::string work_dir;
int32_t md_region_count = 0;
const std::string minidump_dir = "/data/vendor/minidump";
std::string panic_log_dir = minidump_dir + "/" + kPanicLogStem;
std::string current_timestamp = "1970-01-01-00-00-00";
const std::string vantix_dir = "/data/vantix/";
