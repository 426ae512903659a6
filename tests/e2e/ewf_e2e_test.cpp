// E01 sets made by ewfacquire from a raw disk the builder wrote: -ewf gives, byte for byte, what the
// VMDK road gives over the same raw disk, whatever the compression and the number of segments. Sets
// that won't open are refused by name; a damaged chunk is told and reads as zeros.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <regex>
#include <string>

#include "storage/hv_ewf.h"
#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/images.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// The VMDK road over `disk`, from a file named case.E01 in `folder`, so that its last column reads as
// that of `-ewf case.E01` run there.
run_result vmdk_road(const byte_image& disk, const std::string& folder) {
    EXPECT_TRUE(sparse_vmdk(disk.size(), 128, 512).write(0, disk.bytes()).save(folder + "/case.E01"));
    return run_ravel({"-vmdk", "case.E01"}, "", {}, folder);
}

// Each segment of the set in `folder`, its bytes and modification time: what a run must leave alone.
std::string segments_as_found(const std::string& folder) {
    std::string found;
    struct stat st {};
    for (int n = 1; stat((folder + "/case.E0" + std::to_string(n)).c_str(), &st) == 0; ++n)
        found += std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec) + ":" +
                 read_file(folder + "/case.E0" + std::to_string(n));
    return found;
}

}  // namespace

TEST(EwfE2E, ImagesGiveTheRowsOfTheRawDisk) {
    RAVEL_NEEDS(missing_ewf_road());
    temp_dir dir;
    const byte_image disk = evidence_disk();
    ASSERT_TRUE(write_file(dir.file("disk.raw"), disk.bytes()) && write_file(dir.file("vmdk/.keep"), ""));
    const run_result raw = vmdk_road(disk, dir.file("vmdk"));
    ASSERT_EQ(raw.status, 0) << raw.err;
    for (const char* url : {"http://text.example/1024,", "http://edge.example/", "http://sector.example/page1,",
                            "http://off-sector.example/moved,", "http://last.example/page0,"})
        EXPECT_NE(raw.out.find(url), std::string::npos) << url;

    const struct {
        const char* compression;
        uint64_t segment_bytes;
    } forms[] = {{"none", 0}, {"none", 1 << 20}, {"fast", 0}, {"fast", 1 << 20}};
    for (const auto& form : forms) {
        const std::string folder = dir.file(std::string(form.compression) + std::to_string(form.segment_bytes));
        ASSERT_TRUE(write_file(folder + "/.keep", "") &&
                    ewf_acquire(dir.file("disk.raw"), folder + "/case", form.compression, form.segment_bytes));
        EXPECT_EQ(read_file(folder + "/case.E02").empty(), form.segment_bytes == 0) << folder;
        const std::string segments = segments_as_found(folder);
        const run_result run = run_ravel({"-ewf", "case.E01"}, "", {}, folder);
        EXPECT_TRUE(segments_as_found(folder) == segments) << folder << ": a segment was changed";
        EXPECT_EQ(run.status, 0) << folder;
        EXPECT_EQ(after_preamble(run.out), after_preamble(raw.out)) << folder;
        EXPECT_EQ(run.err, raw.err) << folder;
    }
    // After -vmdk, before -f.
    const run_result first = run_ravel({"-f", "nothing.dat", "-ewf", "case.E01"}, "", {}, dir.file("fast0"));
    EXPECT_EQ(after_preamble(first.out), after_preamble(raw.out));
}

// Each with its message, no header row, status -1; the segment files are named as libewf found them.
TEST(EwfE2E, SetsThatWontOpenAreRefusedByName) {
    RAVEL_NEEDS(missing_ewf_road());
    temp_dir dir;
    ASSERT_TRUE(write_file(dir.file("disk.raw"), evidence_disk().bytes()) &&
                ewf_acquire(dir.file("disk.raw"), dir.file("case"), "none", 1 << 20));
    ASSERT_FALSE(read_file(dir.file("case.E04")).empty());
    ASSERT_TRUE(write_file(dir.file("text.E01"), small_container("text.example").bytes()));

    const struct {
        const char* what;
        const char* image;
        const char* message;
    } cases[] = {
        {"missing", "nothing.E01", "prob opening nothing.E01 for read, aborting\n"},
        {"not EWF", "text.E01", "prob reading text.E01: not an EWF image\n"},
        {"cut", "case.E01", "prob reading case.E01: segment case.E03 is cut short\n"},
        {"missing segment", "case.E01", "prob reading case.E01: segment case.E02 is missing\n"},
    };
    for (const auto& c : cases) {
        if (std::string(c.what) == "cut") {
            const std::string segment = read_file(dir.file("case.E03"));
            ASSERT_TRUE(write_file(dir.file("case.E03"), segment.substr(0, segment.size() / 2)));
        }
        if (std::string(c.what) == "missing segment") {
            ASSERT_EQ(std::remove(dir.file("case.E02").c_str()), 0);
        }
        const run_result run = run_ravel({"-ewf", c.image}, "", {}, dir.path());
        EXPECT_EQ(run.status, 255) << c.what;
        EXPECT_EQ(after_preamble(run.out), "") << c.what;
        EXPECT_EQ(run.err, c.message + long_erase) << c.what;
    }
}

// A byte flipped inside a compressed chunk: one line names the chunk's bytes, which read as zeros; the
// rows are those of the raw disk with that stretch zeroed, and the run succeeds.
TEST(EwfE2E, DamagedChunkIsToldOnceAndReadsAsZeros) {
    RAVEL_NEEDS(missing_ewf_road());
    temp_dir dir;
    byte_image disk = evidence_disk();
    ASSERT_TRUE(write_file(dir.file("disk.raw"), disk.bytes()) && write_file(dir.file("vmdk/.keep"), "") &&
                ewf_acquire(dir.file("disk.raw"), dir.file("case"), "fast"));
    std::string segment = read_file(dir.file("case.E01"));
    segment[100000] = static_cast<char>(segment[100000] ^ 0x5A);  // in the chunks of the text-like first MiB
    ASSERT_TRUE(write_file(dir.file("case.E01"), segment));

    const run_result run = run_ravel({"-ewf", "case.E01"}, "", {}, dir.path());
    EXPECT_EQ(run.status, 0);
    const std::regex told("prob reading media bytes ([0-9]+) to ([0-9]+), read as zeros\n");
    std::smatch lost;
    ASSERT_TRUE(std::regex_search(run.err, lost, told)) << run.err;
    const uint64_t first = std::stoull(lost[1]), last = std::stoull(lost[2]);
    EXPECT_EQ(first % 32768, 0u);
    EXPECT_EQ(last - first + 1, 32768u);
    // On a line of its own, the status line wiped first.
    std::string rest = lost.prefix().str();
    ASSERT_GE(rest.size(), long_erase.size());
    EXPECT_EQ(rest.substr(rest.size() - long_erase.size()), long_erase);
    rest = rest.substr(0, rest.size() - long_erase.size()) + lost.suffix().str();
    EXPECT_FALSE(std::regex_search(rest, told));

    disk.text(first, std::string(last - first + 1, '\0'));
    const run_result zeroed = vmdk_road(disk, dir.file("vmdk"));
    EXPECT_EQ(after_preamble(run.out), after_preamble(zeroed.out));
    EXPECT_EQ(rest, zeroed.err);
    EXPECT_LT(after_preamble(run.out).size(), after_preamble(vmdk_road(evidence_disk(), dir.file("vmdk")).out).size());
}
