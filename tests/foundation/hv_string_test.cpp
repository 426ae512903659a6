#include "foundation/hv_string.h"

#include <gtest/gtest.h>

#include <cstdlib>

TEST(SplitPath, BackslashWinsAndDotDotForms) {
    struct row { const char* path; const char* folder; const char* name; };
    const row rows[] = {
        {"C:\\dir\\file.dat", "C:\\dir", "file.dat"},
        {"a/b\\c", "a/b", "c"},              // the last backslash wins over a later-looking slash
        {"a\\b/c", "a", "b/c"},
        {"dir/..", "dir//..", "."},          // two slashes, as it stands
        {"dir\\..", "dir\\..", "."},
        {"dir/sub/", "dir/sub", ""},
        {"file", ".", "file"},               {"..", ".", ".."},
        {"/x", ".", "/x"},                   // separator only at position 0
        {"\\x/y", ".", "\\x/y"},             // backslash at 0: the slash is not looked at
    };
    for (const row& r : rows) {
        std::string folder = "old", name = "old";
        EXPECT_TRUE(split_path(std::string(r.path), folder, name)) << r.path;
        EXPECT_EQ(folder + "|" + name, std::string(r.folder) + "|" + r.name) << r.path;
    }
    std::string folder = "x", name = "y", stem, ext;
    EXPECT_FALSE(split_path(std::string(), folder, name));
    EXPECT_EQ(folder + name, "");
    EXPECT_FALSE(split_path(static_cast<const char*>(nullptr), folder, name));
    std::wstring wf, wn;
    EXPECT_TRUE(split_path_wide(L"a/b\\c", wf, wn) && wf == L"a/b" && wn == L"c");
    for (auto [path, want] : {std::pair{"C:\\x\\index.dat", "C:\\x|index|dat"}, {"name.", ".|name|"},
                              {"d/.profile", "d||profile"}}) {
        ASSERT_TRUE(split_file_name(path, folder, stem, ext));
        EXPECT_EQ(folder + "|" + stem + "|" + ext, want);
    }
    EXPECT_FALSE(split_file_name("", folder, stem, ext));
}

TEST(Trim, NarrowIsSetBasedWideIsOneClassAtATime) {
    std::string blank = " \t", text = "\r\n a b\t\n", line = "line\r\n\n";
    EXPECT_FALSE(trim_whitespace(blank));
    EXPECT_TRUE(trim_whitespace(text));
    EXPECT_EQ(blank + "|" + text, "|a b");
    std::wstring tab = L"\t x", lf = L"x \n", slashes = L"dir\\//";
    EXPECT_TRUE(trim_whitespace_wide(tab) && trim_whitespace_wide(lf));
    EXPECT_EQ(tab + L"|" + lf, L" x|x ");   // a blank behind a tab stays; so does one before a line end
    EXPECT_EQ(strip_line_end(line), 3);
    EXPECT_TRUE(drop_last_chars(line, 5));
    EXPECT_TRUE(strip_trailing_slashes_wide(slashes));
    EXPECT_EQ(line, "");
    EXPECT_EQ(slashes, L"dir");
}

TEST(Replace, Forms) {
    std::string same = "aAa", mixed = "aAa", s = "Hello World", find = "WORLD", out, lines = "a\nb\n";
    replace_char(same, 'a', 'a', false);
    replace_char(mixed, 'a', '_', true);
    EXPECT_EQ(same + "|" + mixed, "aAa|___");
    EXPECT_TRUE(replace_first(s, find, "there", true));
    EXPECT_EQ(s + "|" + find, "Hello there|world");   // with ignore_case the caller's search text is lowered
    EXPECT_EQ(replace_all(out, "aaa-aa", "aa", "b"), "ba-b");   // occurrences do not overlap
    EXPECT_EQ(remove_char(lines, '\n'), 2);
    EXPECT_EQ(lines, "ab");
}

TEST(CopyPrintableText, NulEndsReplacementOrDrop) {
    const uint8_t bytes[] = {0x41, 0x07, 0x42, 0x0A, 0x0D, 0xFF, 0x00, 0x43};
    struct row { int count; bool keep_line_ends; char replacement; const char* want; };
    for (const row& r : {row{3, false, ' ', "A B"}, row{3, false, 0, "AB"}, row{8, true, '?', "A?B\n\r?"}}) {
        std::string out = "stale";
        EXPECT_TRUE(copy_printable_text(out, bytes, r.count, r.keep_line_ends, r.replacement));
        EXPECT_EQ(out, r.want);   // the NUL ends the walk
    }
    std::string out = "stale";
    EXPECT_FALSE(copy_printable_text(out, nullptr, 3, false, ' '));
    EXPECT_EQ(out, "");
}

TEST(ParseUintText, Forms) {
    struct row { const char* text; bool ok; uint32_t value; };
    const row rows[] = {{"0x10", true, 16}, {"x10", true, 16}, {"X1f", true, 31}, {"1x1F", true, 31},
                        {"o10", true, 8},   {"'A'", true, 65}, {"10", true, 10},  {"12abc", true, 12},
                        {"-1", true, 0xFFFFFFFFu},             {"abc", false, 0}, {"", false, 0},
                        {" 12", false, 0}};   // the blank first is refused although the copy is clean
    for (const row& r : rows) {
        uint32_t v = 99;
        EXPECT_EQ(parse_uint_text(r.text, &v), r.ok) << r.text;
        EXPECT_EQ(v, r.value) << r.text;
    }
}

TEST(ExpandPathText, EnvironmentAndShadowCopyForms) {
    setenv("RAVEL_T_DIR", "/home/u", 1);
    setenv("RAVEL_T_CHAIN", "%RAVEL_T_DIR%/c", 1);
    setenv("RAVEL_T_SELF", "%RAVEL_T_SELF%", 1);
    unsetenv("RAVEL_T_NOTSET");
    unsetenv("vss");
    const std::string long_text(513, 'a');
    const std::pair<std::string, std::string> rows[] = {
        {"%RAVEL_T_DIR%/index.dat", "/home/u/index.dat"},
        {"%RAVEL_T_CHAIN%/x", "/home/u/c/x"},   // a value is scanned in its turn
        {"%RAVEL_T_NOTSET%/x", "%RAVEL_T_NOTSET%/x"},
        {"50% off", "50% off"},
        {"%vss%3\\x", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\x"},
        {long_text + "%RAVEL_T_DIR%", long_text + "%RAVEL_T_DIR%"},
        {"%RAVEL_T_SELF%", "%RAVEL_T_SELF%"},   // ends, does not hang
    };
    for (const auto& [text, want] : rows) EXPECT_EQ(expand_path_text(text, true), want) << text;
    EXPECT_EQ(expand_path_text("%VSS%3", false), "%VSS%3");
}
