// minidump_image, the program itself, on the workstation: what shell commands leave and print.

#include <android-base/file.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "image_builder.h"

namespace {

const std::vector<Region> kRegions = {{"plain", "1"},     {"twice", "2"}, {"twice", "3"},
                                      {"../up", "4"},     {"..", "5"},    {"", "6"},
                                      {"\x1b[2J \\", "7"}};

struct Case {
    std::string name;
    std::string commands;
    std::string output;  // of the commands, with a space for each end of a line
};

using ImageTest = testing::TestWithParam<Case>;

// "m" runs the program and prints its exit status; what the program prints goes to the file "said".
// "poke" puts bytes into the image.
constexpr char kShell[] = R"(PATH=")" PROGRAMS R"(:$PATH" LC_ALL=C
export LC_ALL
m() { status=0; minidump_image "$@" >../said 2>&1 || status=$?; echo $status; }
poke() { printf "$2" | dd of=image bs=1 seek="$1" conv=notrunc status=none; }
{
)";

TEST_P(ImageTest, LosesAndLeaksNothing) {
    std::filesystem::remove_all(PLACE);
    std::filesystem::create_directories(PLACE "/work");
    std::filesystem::current_path(PLACE "/work");
    ASSERT_TRUE(android::base::WriteStringToFile(build_image(kRegions, 0), "image"));
    const std::string script = kShell + GetParam().commands + "\n} | tr '\\n' ' ' >../output";
    EXPECT_EQ(0, std::system(script.c_str()));
    std::string output;
    EXPECT_TRUE(android::base::ReadFileToString("../output", &output));
    EXPECT_EQ(GetParam().output, output);
}

INSTANTIATE_TEST_SUITE_P(
        , ImageTest,
        testing::Values(
                Case{"ExtractKeepsInsideTheDirectory",
                     "m extract image out; ls .. .; cat out/*; ls out | wc -l; tail -n 1 ../said",
                     "0 .: image out  ..: output said work 12345677 "
                     R"(\x1b[2J\x20\\: 1 bytes to out/region_of_table_entry_7__[2J__ )"},
                Case{"ExtractNeverOverwritesAFile", R"(
mkdir out; echo kept >out/plain; ln -s ../target out/region_of_table_entry_5_..
m extract image out plain .. '""'; ls; cat out/plain out/region_of_table_entry_6_)",
                     "1 image out kept 6"},
                Case{"ExtractReportsACutRegion", R"(
poke 139 '\200'; m extract image far; cat far/*2_twice
poke 68 '\0\0\0\100\1'; poke 76 '\377\377\377\377\377\377\377\377'
truncate -s 5G image; echo end >>image; m extract image out plain; cat out/plain ../said)",
                     "1 1 end plain: 4 bytes to out/plain "
                     "minidump_image: plain is cut: the image ends before it does "},
                Case{"ExtractReportsAMissingRegion", "m extract image out none", "1 "},
                Case{"MakeReplacesOnlyWithForce", R"(
echo a >a; m make image; m make --force image a=a b=none; ln -s a link; m make --force link
m show image; grep -c plain ../said; m make --force image a=a; m extract image out; cat out/*; ls)",
                     "1 1 1 0 1 0 0 a a image link out "},
                Case{"MakeNeverReplacesANewcomer", R"(
mkfifo pipe; { exec 3>pipe; echo kept >new; } & m make new a=pipe; : <>pipe; cat new; ls)",
                     "1 kept image new pipe "},
                Case{"MakeRefusesBadNames", R"(
for name in b/c '' .. 20_bytes_and_one_more; do m make new "$name=image"; done
m make new a=image a=image; m make new $(seq -f %g=image 640); ls)",
                     "2 2 2 2 2 2 image "},
                Case{"ShowRemarks", R"(
poke 68 '\0\0\0\200'; poke 147 '\200'; m show image; cut -d '(' -f 2- -s ../said)",
                     "0 beyond the image)  (offset of 2 GiB or more) "
                     "beyond the image)  (size of 2 GiB or more)  (doubled name) doubled name) "
                     "name with \"/\") name of a directory) empty name) "},
                Case{"StatusFailed", R"(
m make new a=.; m show .; cat ../said; minidump_image show image 2>&1 >/dev/full || echo $?)",
                     "1 1 minidump_image: cannot read .: Is a directory "
                     "minidump_image: cannot write standard output: No space left on device 1 "},
                Case{"StatusWrongArguments", "m; m show; m show --force image", "2 2 2 "},
                Case{"StatusDoubtful", R"(
poke 38 '\2'; m show image; poke 38 '\1'; m show image; poke 53 '\3'; m show image)",
                     "3 0 3 "},
                Case{"StatusNoDump", R"(poke 12 '\2'; m show image; m extract image .)", "4 4 "},
                Case{"StatusPacked", R"(
for magic in '\37\213' 'PK\3\4' '\3757zXZ\0' '\072\377\46\355'; do poke 0 "$magic"; m show image; done)",
                     "5 5 5 5 "}),
        [](const auto& info) { return info.param.name; });

}  // namespace
