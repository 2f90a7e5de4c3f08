#include "support.h"

#include <android-base/logging.h>
#include <sys/stat.h>
#include <unistd.h>

#include "driver/run_values.h"

// The tests put libfaketime before the sanitizer's library.
extern "C" const char* __asan_default_options() { return "verify_asan_link_order=0"; }

std::string files(const std::string& folder) { return abbreviated(tree(folder)); }

std::string log() { return abbreviated(take_log()); }

std::string journal() { return abbreviated(take_journal()); }

std::string abbreviated(std::string text) {
    if (chown(kScratch.c_str(), 0, 1000) != 0) {  // an ordinary user's device has no such group
        replace_all(text, "I Error: chown -R root:system " + kPlace + " failed; ", "");
    }
    replace_all(text, kPlace, "@");
    replace_all(text, kPanicTree, "%");
    replace_all(text, kStamp, "T");
    return text;
}

std::string expected(const std::string& name) {
    std::string lines = read_file(std::string(TESTS_FOLDER) + "/" + name);
    replace_all(lines, "\n", "; ");
    return lines;
}

int run_tool(const std::string& arguments, const std::string& time, const std::string& wrapper) {
    // Leaks cannot be looked for in a process that is traced.
    const std::string leaks = wrapper.empty() ? "" : ":detect_leaks=0";
    const int status =
            run_at(time, "ASAN_OPTIONS=verify_asan_link_order=0" + leaks + " " + wrapper + " " +
                                 program("qv_minidump_extractor") + " " + arguments);
    const std::string err = read_file(kErr);
    EXPECT_FALSE(has(err, "Sanitizer") || has(err, "runtime error:")) << err;
    return status;
}

void DeviceTest::SetUp() {
    reset_device();
    make(kPlace, "aop_dump/ tmp/");
    umask(0);
    work_dir = kPlace;
    static std::string name = "tests";
    static char* argv[] = {name.data(), nullptr};
    android::base::InitLogging(argv, android::base::LogdLogger(android::base::SYSTEM),
                               android::base::DefaultAborter);
}

void DeviceTest::crash(const std::string& image) {
    write_file(kPartition, image);
    image_ = image;
    extent_ = (get_number(image, 36, 4) | get_number(image, 40, 4)) / 4096 * 4096 + 4096;
}

bool DeviceTest::untouched() { return read_file(kPartition).substr(0, image_.size()) == image_; }

void DeviceTest::expect_erased() {
    const std::string rest = fs::is_block_file(kPartition) ? image_.substr(extent_) : "";
    const std::string content = read_file(kPartition).substr(0, image_.size());
    EXPECT_TRUE(std::string(extent_, '\0') + rest == content);
}

void DeviceTest::expect_archived(const std::string& archive) {
    const std::string folder = unpack(archive);
    EXPECT_EQ("minidump.bin", tree(folder));
    EXPECT_TRUE(image_.substr(0, extent_) == read_file(folder + "/minidump.bin"));
}
