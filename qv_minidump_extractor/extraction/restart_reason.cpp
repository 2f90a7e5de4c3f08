#include "extraction/restart_reason.h"

#include <android-base/logging.h>
#include <cutils/properties.h>

#include <cstdint>
#include <string>

#include "common/run_values.h"
#include "extraction/partition_access.h"

namespace {

constexpr int64_t kRestartRecordSize = 100;  // bytes

}  // namespace

void get_restart_info() {
    const std::string record_path = work_dir + "/" + kTmpDirectory + "/MD_RESTARTINFO.BIN";
    const std::string record = byte_read_ascii_str(record_path, 0, kRestartRecordSize);
    LOG(INFO) << "restart_info = " << record;
    property_set("vendor.restart_reason", record.c_str());
}
