// The man page renders without a warning from man or groff, names every option that acts, and is
// installed where man finds it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "support/needs.h"
#include "support/readme_options.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

const std::string page = std::string(RAVEL_SOURCE_DIR) + "/doc/ravel.1";

// What `command` writes on standard error; its standard output is dropped.
std::string warnings_of(const std::string& command) {
    std::string text;
    if (FILE* pipe = popen((command + " 2>&1 >/dev/null").c_str(), "r")) {
        char chunk[4096];
        for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;) text.append(chunk, n);
        pclose(pipe);
    }
    return text;
}

}  // namespace

TEST(ManPageE2E, RendersCleanAndNamesEveryOption) {
    RAVEL_NEEDS(missing_tools({"man", "groff"}, "man-db and groff-base"));
    ASSERT_FALSE(read_file(page).empty());
    EXPECT_EQ(warnings_of("MANWIDTH=80 man --warnings -l '" + page + "'"), "");
    EXPECT_EQ(warnings_of("groff -ww -z -man -Tutf8 '" + page + "'"), "");

    // In roff a hyphen of an option is written "\-".
    std::string source = read_file(page);
    for (size_t at = source.find("\\-"); at != std::string::npos; at = source.find("\\-", at)) source.erase(at, 1);
    const std::vector<std::string> options = readme_options();
    ASSERT_GT(options.size(), 30u);
    for (const std::string& option : options) EXPECT_TRUE(names_option(source, option)) << option;

    // Installed beside the program, where man looks for it.
    temp_dir prefix;
    ASSERT_EQ(std::system(("cmake --install '" + std::string(RAVEL_BUILD_DIR) + "' --prefix '" + prefix.path() +
                           "' > /dev/null").c_str()),
              0);
    EXPECT_EQ(read_file(prefix.file("share/man/man1/ravel.1")), read_file(page));
}
