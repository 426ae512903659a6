// A build with the E01, image, streamOptimized and WebCache roads and the case database switched off
// (RAVEL_EWF, RAVEL_TSK, RAVEL_ZLIB, RAVEL_ESEDB, RAVEL_SQLITE), as on a machine without libewf-dev,
// libtsk-dev, zlib1g-dev, libesedb-dev and libsqlite3-dev: it builds, -ewf, -image and -sqlite are refused
// alike, a streamOptimized disk is refused by name, and a database is read as any other file, said once.
// The build is made once, in a folder of this build's, and only ravel.
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

TEST(BuildOptionsE2E, WithoutTheLibrariesTheirInputsAreRefused) {
    const std::string build = std::string(RAVEL_BUILD_DIR) + "/without-libraries";
    ASSERT_TRUE(shell("cmake -S " + quoted(RAVEL_SOURCE_DIR) + " -B " + quoted(build) +
                      " -DRAVEL_EWF=OFF -DRAVEL_TSK=OFF -DRAVEL_ZLIB=OFF -DRAVEL_ESEDB=OFF -DRAVEL_SQLITE=OFF"
                      " -DRAVEL_TESTS=OFF -DCMAKE_BUILD_TYPE=Debug && "
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

    // Only a database's header: the signature EF CD AB 89 at 4, a page size of 32 KiB at 236.
    std::string header(4096, '\0');
    header.replace(4, 4, "\xEF\xCD\xAB\x89");
    header.replace(236, 4, std::string("\x00\x80\x00\x00", 4));
    ASSERT_TRUE(write_file(dir.file("a/WebCacheV01.dat"), header) && write_file(dir.file("b/WebCacheV01.dat"), header));
    const run_result database = run_other(ravel, {"-enumdir", dir.path(), "-num_subdirs", "1", "-filter", "*.dat"}, dir.path());
    EXPECT_EQ(database.status, 0);
    const std::string said = ": WebCache databases are not read in this build, it is read as any other file\n";
    const size_t first = database.err.find(said);
    EXPECT_NE(first, std::string::npos) << database.err;
    EXPECT_EQ(database.err.find(said, first + 1), std::string::npos) << "said more than once";
    EXPECT_NE(database.err.find("probs parsing file: "), std::string::npos) << database.err;
}
