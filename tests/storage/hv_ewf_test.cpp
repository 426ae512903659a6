// What the E01 reader works out without libewf: how a segment ends, which segment comes next. The media
// itself is read end to end (tests/e2e/ewf_e2e_test.cpp).
#include "storage/hv_ewf.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/builder_vmdk.h"

using namespace testsupport;

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
