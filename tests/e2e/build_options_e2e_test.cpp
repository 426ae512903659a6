// A build with the E01, image and streamOptimized roads and the case database switched off (RAVEL_EWF,
// RAVEL_TSK, RAVEL_ZLIB, RAVEL_SQLITE), as on a machine without libewf-dev, libtsk-dev, zlib1g-dev and
// libsqlite3-dev: it builds, -ewf, -image and -sqlite are refused alike, and a streamOptimized disk is refused by name. The build
// is made once, in a folder of this build's, and only ravel.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/builder_vmdk.h"
#include "support/images.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// Another build's ravel, run in `folder` as run_ravel runs this build's.
run_result run_other(const std::string& binary, const std::vector<std::string>& args, const std::string& folder) {
    std::string command = "cd " + quoted(folder) + " && TZ=UTC " + quoted(binary);
    for (const std::string& arg : args) command += " " + quoted(arg);
    const int status = std::system((command + " < /dev/null > out.txt 2> err.txt").c_str());
    run_result result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = read_file(folder + "/out.txt");
    result.err = read_file(folder + "/err.txt");
    return result;
}

}  // namespace

TEST(BuildOptionsE2E, WithoutTheLibrariesTheirOptionsAreRefused) {
    const std::string build = std::string(RAVEL_BUILD_DIR) + "/without-libraries";
    ASSERT_TRUE(shell("cmake -S " + quoted(RAVEL_SOURCE_DIR) + " -B " + quoted(build) +
                      " -DRAVEL_EWF=OFF -DRAVEL_TSK=OFF -DRAVEL_ZLIB=OFF -DRAVEL_SQLITE=OFF -DRAVEL_TESTS=OFF -DCMAKE_BUILD_TYPE=Debug && "
                      "cmake --build " + quoted(build) + " -j2 --target ravel"))
        << "the build without the libraries failed";
    const std::string ravel = build + "/ravel";

    temp_dir dir;
    ASSERT_TRUE(sparse_vmdk(1 << 20, 128, 512).stream().write(0, "grain").save(dir.file("disk.vmdk")));
    const run_result sqlite = run_other(ravel, {"-sqlite", "x", "-complete"}, dir.path());
    const run_result ewf = run_other(ravel, {"-ewf", "case.E01"}, dir.path());
    EXPECT_EQ(ewf.status, 255);
    EXPECT_EQ(ewf.err, "This option is not offered in this build\n");
    EXPECT_EQ(ewf.err, sqlite.err);
    const run_result image = run_other(ravel, {"-image", "disk.raw"}, dir.path());
    EXPECT_EQ(image.status, 255);
    EXPECT_EQ(image.err, ewf.err);
    EXPECT_EQ(after_preamble(image.out), "");
    EXPECT_EQ(after_preamble(ewf.out), "");

    const run_result stream = run_other(ravel, {"-vmdk", "disk.vmdk"}, dir.path());
    EXPECT_EQ(stream.status, 255);
    EXPECT_EQ(stream.err, "disk.vmdk can't be opened: compressed grains are not offered in this build\n\n"
                          "suggested array: -vmdk \"disk.vmdk\"\n" + long_erase);
    EXPECT_EQ(after_preamble(stream.out), "");
}
