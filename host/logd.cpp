// The log of a virtual device. Debian's liblog has no log daemon to write to, so its last function
// before the daemon is replaced: each line of a message becomes a line of /dev/log/records with a
// head of its own, in the manner of logcat, with the buffer's name first.

#include <android-base/strings.h>
#include <android/log.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <iomanip>
#include <string>

// From <log/log_id.h>, which does not say so in C++ everywhere.
extern "C" const char* android_log_id_to_name(log_id_t log_id);

namespace {

template <typename Record>
void write_lines(const Record& record, const char* message) {
    const std::time_t now = std::time(nullptr);
    const int severity = record.priority;
    std::ofstream records("/dev/log/records", std::ios::app);
    for (const std::string& line : android::base::Split(message, "\n")) {
        records << android_log_id_to_name(static_cast<log_id_t>(record.buffer_id)) << " "
                << std::put_time(std::localtime(&now), "%m-%d %H:%M:%S") << " " << getpid() << " "
                << "??VDIWEFS"[severity] << " " << record.tag << ": " << line << "\n";
    }
}

}  // namespace

#ifdef LOG_ID_DEFAULT  // only in the liblog of Debian 12, which is older than API level 30's
void __android_log_logd_logger(const __android_logger_data* record, const char* message) {
    write_lines(*record, message);
}
#else
void __android_log_logd_logger(const __android_log_message* record) {
    write_lines(*record, record->message);
}
#endif
