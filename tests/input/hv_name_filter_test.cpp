#include "input/hv_name_filter.h"

#include <gtest/gtest.h>

#include "storage/hv_text_conversion.h"
#include "storage/hv_file_stats.h"

// The filters of a whole run (a list in one text, path, signature and time items) are also pinned end to end.
namespace {

std::vector<filename_filter> parse(std::string text) {
    std::vector<filename_filter> out;
    parse_filter_text(out, text);
    return out;
}

TEST(NameFilter, MatchesNamesAndFolders) {
    struct { const char *filter, *path; bool expected; } const rows[] = {
        {"*.dat", "/c/History/INDEX.DAT", true}, {"*.dat", "/c/a.dat.dat", false},  // first occurrence decides
        {"index.dat,*.log", "/c/Index.dat", true}, {"index.dat,*.log", "/c/z.txt", false},
        {"a|b,c", "/c/b,c", true},               {"a|b,c", "/c/c", false},
        {"x|*|y", "/c/any", true},               {"*dex*", "/c/index.dat", true},
        {"ind*", "/c/xindex", false},            {"index.dat", "/c/index.dat2", false},
        {"", "/c/index.dat", false},             {" A | B ", "/c/b", true},  // one empty item passes nothing
        {"a*b", "/c/ab", true},                  {"*:x", "/c/any", true},    // a middle star is dropped
        {"/content.ie5", "/u/content.ie5/sub/index.dat", true}, {"/content.ie5", "/u/content.ie5x/index.dat", false},
        {"/content.ie5", "C:\\u\\Content.IE5\\index.dat", true},
        {"/other|*.dat", "/u/x/index.dat", true},  // a path item that misses leaves the rest to decide
    };
    bool could_not_open = false;
    for (const auto& r : rows)
        EXPECT_EQ(filter_passes_plain(could_not_open, wide_of(r.path), parse(r.filter)), r.expected)
            << r.filter << " on " << r.path;
}

TEST(NameFilter, TimeWindowNeedsStats) {
    time_window window;
    window.start_valid = window.stop_valid = true;
    window.start_unix = 1000, window.stop_unix = 2000;
    struct { uint64_t mtime, birth; int32_t kind; bool expected; } const rows[] = {
        {500, 600, 8, false}, {500, 1500, 8, true}, {1500, 2500, 8, false}, {1500, 1500, 16, false},
        {1000, 2000, 8, true}};
    bool could_not_open = false;
    for (const auto& r : rows) {
        file_stats stats;  // a filled record is used as it stands: the path need not exist
        stats.mtime = r.mtime;
        stats.birthtime = r.birth;
        stats.time_kind = r.kind;
        EXPECT_EQ(filter_passes_narrow(window, could_not_open, "/none/x", parse("*"), &stats), r.expected) << r.mtime;
    }
    EXPECT_TRUE(filter_passes(window, could_not_open, L"/none/x", parse("*"), nullptr));  // no stats: no window
}

}  // namespace
