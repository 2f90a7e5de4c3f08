// The log of a virtual device. Debian's liblog has no log daemon to write to, so its last function
// before the daemon is replaced: each record becomes a line of /dev/log/records, in the manner of
// logcat, with the buffer's name first.

#include <android/log.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <iomanip>

// From <log/log_id.h>, which does not say so in C++ here.
extern "C" const char* android_log_id_to_name(log_id_t log_id);

void __android_log_logd_logger(const __android_logger_data* record, const char* message) {
    const std::time_t now = std::time(nullptr);
    const int severity = record->priority;
    std::ofstream("/dev/log/records", std::ios::app)
            << android_log_id_to_name(static_cast<log_id_t>(record->buffer_id)) << " "
            << std::put_time(std::localtime(&now), "%m-%d %H:%M:%S") << " " << getpid() << " "
            << "??VDIWEFS"[severity] << " " << record->tag << ": " << message << "\n";
}
