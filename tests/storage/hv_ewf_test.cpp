// The E01 reader: the media of sets that ewfacquire made reads back as the raw disk they were made from,
// whether the segments are files or memory (damaged chunks: tests/e2e/ewf_e2e_test.cpp). And what the
// reader works out without libewf: how a segment ends, which segment comes next.
#include "storage/hv_ewf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/images.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

std::string missing_ewf() {
    if (!ewf_image::offered()) return "ravel built without libewf (Debian package libewf-dev)";
    return missing_ewf_tools();
}

// The whole media and 4096 bytes past its end, read in pieces that straddle chunks.
std::string media_of(ewf_image& image) {
    std::string media(image.size() + 4096, '\x55');
    for (size_t at = 0; at < media.size(); at += 50000) {
        const size_t piece = std::min<size_t>(50000, media.size() - at);
        EXPECT_TRUE(image.read(at, reinterpret_cast<uint8_t*>(&media[at]), piece));
    }
    return media;
}

std::vector<std::string> segment_files(const std::string& target) {
    std::vector<std::string> files;
    for (std::string name = target + ".E01"; !read_file(name).empty(); name = next_segment_name(name))
        files.push_back(read_file(name));
    return files;
}

std::vector<std::pair<const uint8_t*, size_t>> in_memory(const std::vector<std::string>& files) {
    std::vector<std::pair<const uint8_t*, size_t>> segments;
    for (const std::string& file : files) segments.emplace_back(reinterpret_cast<const uint8_t*>(file.data()), file.size());
    return segments;
}

}  // namespace

TEST(EwfSet, SegmentsEndAndFollowAsTheFormatNamesThem) {
    const struct {
        const char* name;
        const char* next;
    } names[] = {
        {"case.E01", "case.E02"}, {"case.E09", "case.E10"}, {"case.E99", "case.EAA"}, {"case.EAZ", "case.EBA"},
        {"case.EZZ", "case.FAA"}, {"d/case.e99", "d/case.eaa"}, {"case.s01", "case.s02"}, {"case.ZZZ", ""},
        {"case.E00", ""},         {"case.1AB", ""},          {"case", ""},             {"case.E1", ""},
    };
    for (const auto& n : names) EXPECT_EQ(next_segment_name(n.name), n.next) << n.name;

    const struct {
        std::vector<std::pair<std::string, uint64_t>> sections;
        size_t cut_to;  // 0: whole
        ewf_segment_end end;
    } segments[] = {
        {{{"header", 600}, {"sectors", 5000}, {"table", 300}, {"done", 76}}, 0, ewf_segment_end::done},
        {{{"header", 600}, {"sectors", 5000}, {"next", 76}}, 0, ewf_segment_end::next},
        {{{"header", 600}, {"sectors", 5000}, {"next", 76}}, 13 + 600 + 5000 + 75, ewf_segment_end::cut},
        {{{"header", 600}, {"sectors", 5000}, {"next", 76}}, 13 + 600 + 4000, ewf_segment_end::cut},
        {{{"header", 600}, {"sectors", 0}, {"done", 76}}, 0, ewf_segment_end::cut},  // points at itself
        {{}, 0, ewf_segment_end::cut},
    };
    for (const auto& s : segments) {
        byte_image file = ewf_sections(s.sections);
        if (s.cut_to != 0) file.resize(s.cut_to);
        memory_image bytes(file.data(), file.size());
        EXPECT_EQ(read_segment_end(bytes), s.end) << s.sections.size() << " sections, cut to " << s.cut_to;
    }
}

// Compressed or not, in one segment or several, opened by any of its segment files or from memory.
TEST(EwfImage, MediaReadsBackAsTheRawDisk) {
    RAVEL_NEEDS(missing_ewf());
    temp_dir dir;
    const byte_image disk = evidence_disk();
    ASSERT_TRUE(write_file(dir.file("disk.raw"), disk.bytes()));
    const std::string expected = disk.bytes() + std::string(4096, '\0');
    for (const char* compression : {"none", "fast"}) {
        const std::string target = dir.file(compression);
        ASSERT_TRUE(ewf_acquire(dir.file("disk.raw"), target, compression, 1 << 20)) << compression;
        const std::vector<std::string> files = segment_files(target);
        ASSERT_GE(files.size(), 3u) << compression;
        for (const std::string& named : {target + ".E01", target + ".E02"}) {
            ewf_image image;
            std::string segment;
            ASSERT_EQ(image.open(named, segment), ewf_fault::none) << named;
            EXPECT_EQ(image.size(), disk.size());
            EXPECT_TRUE(media_of(image) == expected) << named;
        }
        ewf_image image;
        std::string segment;
        ASSERT_EQ(image.open_memory(in_memory(files), segment), ewf_fault::none) << compression;
        EXPECT_TRUE(media_of(image) == expected) << compression;
        uint64_t offset = 0, length = 0;
        EXPECT_FALSE(image.next_lost_range(offset, length));
    }
}
