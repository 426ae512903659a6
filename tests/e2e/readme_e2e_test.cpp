// The README's examples do what it says: the quick start prints the report it shows.
#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/hv_console.h"
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
    EXPECT_EQ(r.err, long_erase_text);
    EXPECT_EQ(r.status, 0);
}
