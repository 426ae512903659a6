// The README's examples do what it says: the quick start prints the report it shows, and the recipe
// that shares a case out over GNU parallel merges to the report of one run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "support/builder.h"
#include "support/needs.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

std::string readme() { return read_file(std::string(RAVEL_SOURCE_DIR) + "/README.md"); }

std::string binary_dir() {
    const std::string binary = ravel_binary();
    return binary.substr(0, binary.rfind('/'));
}

// The run line tells when and on which machine a report was made: it is the one line that differs.
std::string without_run_line(std::string report) {
    const size_t at = report.find("\nRun time: ");
    if (at != std::string::npos) report.erase(at + 1, report.find('\n', at + 1) - at);
    return report;
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

}  // namespace

TEST(ReadmeE2E, TheSampleBlockIsWhatTheQuickStartPrints) {
    const std::string text = readme(), command = "./build/ravel -f build/sample/Content.IE5/index.dat";
    ASSERT_NE(text.find("&& " + command + "\n"), std::string::npos) << "the quick start runs another command";
    const std::string opening = "```\n$ " + command + "\n";
    size_t from = text.find(opening);
    ASSERT_NE(from, std::string::npos) << "no sample block";
    from += opening.size();
    const std::string shown = text.substr(from, text.find("```", from) - from);

    // Run from a folder whose build/ is this build, and name the binary as the quick start does.
    temp_dir dir;
    ASSERT_EQ(symlink(binary_dir().c_str(), dir.file("build").c_str()), 0);
    run_result r = run_ravel({"-f", "build/sample/Content.IE5/index.dat"}, "", {}, dir.path());
    replace_all(r.out, ravel_binary(), "./build/ravel");
    EXPECT_EQ(without_run_line(shown), without_run_line(r.out));
    EXPECT_EQ(r.err, long_erase);
    EXPECT_EQ(r.status, 0);
}

TEST(ReadmeE2E, ShardsMergeToTheReportOfOneRun) {
    RAVEL_NEEDS(std::system("parallel --version 2>/dev/null | grep -q '^GNU parallel'") == 0
                    ? ""
                    : "GNU parallel not installed (Debian package parallel)");
    const std::string text = readme();
    std::string shard = "find /case -name index.dat -type f | parallel -k --pipe -N 200 ravel -pipe -threads 1 > reports.txt";
    const std::string merge =
        "awk '/^ravel ver: / && n++ { skip = 4 } skip { skip--; next } /^last mod date/ && h++ { next } 1' "
        "reports.txt > report.csv";
    ASSERT_NE(text.find(shard + "\n" + merge + "\n"), std::string::npos) << "the README shows another recipe";

    // 420 names make three jobs of up to 200. Every kind of folder, and now and then an empty file,
    // which is told and gives no header row: a job may start without one.
    temp_dir dir;
    const char* kinds[] = {"Temporary Internet Files/Content.IE5", "History/History.IE5",
                           "History/History.IE5/MSHist012015030220150303", "Cookies"};
    for (int i = 0; i < 420; ++i) {
        byte_image image(0x100);
        write_container_header(image, {"Q7X2M4LA"}, 0);
        url_entry entry;
        entry.url = "http://site" + std::to_string(i) + ".example/";
        entry.last_modified = filetime_of(2015, 3, 2, 8, i % 60);
        write_url_entry(image, 0x100, entry);
        const std::string path = dir.path() + "/case/u" + std::to_string(i) + "/" + kinds[i % 4] + "/index.dat";
        ASSERT_TRUE(write_file(path, i % 37 == 0 ? "" : image.bytes()));
    }
    replace_all(shard, "/case", dir.path() + "/case");
    replace_all(shard, "parallel ", "parallel -j 2 ");
    const std::string one_run = "find " + dir.path() + "/case -name index.dat -type f | ravel -pipe -threads 1 > one.txt";
    const std::string script = "cd " + dir.path() + " && export PATH=" + binary_dir() + ":\"$PATH\" && { " + shard +
                               " && " + merge + " && " + one_run + "; } 2>/dev/null";
    ASSERT_EQ(std::system(script.c_str()), 0);
    const std::string merged = read_file(dir.file("report.csv")), one = read_file(dir.file("one.txt"));
    EXPECT_NE(read_file(dir.file("reports.txt")), merged);
    EXPECT_EQ(without_run_line(merged), without_run_line(one));
}
