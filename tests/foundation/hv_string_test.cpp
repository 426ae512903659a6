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
        {"file", ".", "file"},
        {"/x", ".", "/x"},                   // separator only at position 0
        {"\\x/y", ".", "\\x/y"},             // backslash at 0: the slash is not looked at
        {"..", ".", ".."},
        {".", ".", "."},
    };
    for (const row& r : rows) {
        std::string folder = "old", name = "old";
        EXPECT_TRUE(split_path(std::string(r.path), folder, name)) << r.path;
        EXPECT_EQ(folder, r.folder) << r.path;
        EXPECT_EQ(name, r.name) << r.path;
    }
    std::string folder = "x", name = "y";
    EXPECT_FALSE(split_path(std::string(), folder, name));
    EXPECT_EQ(folder + name, "");
    EXPECT_FALSE(split_path(static_cast<const char*>(nullptr), folder, name));

    std::wstring wf, wn;
    EXPECT_TRUE(split_path_wide(L"a/b\\c", wf, wn));
    EXPECT_EQ(wf, L"a/b");
    EXPECT_EQ(wn, L"c");
}

TEST(SplitPath, FileNameStemAndExtension) {
    std::string folder, stem, ext;
    ASSERT_TRUE(split_file_name("C:\\x\\index.dat", folder, stem, ext));
    EXPECT_EQ(folder + "|" + stem + "|" + ext, "C:\\x|index|dat");
    ASSERT_TRUE(split_file_name("name.", folder, stem, ext));
    EXPECT_EQ(stem + "|" + ext, "name|");
    ASSERT_TRUE(split_file_name("d/.profile", folder, stem, ext));
    EXPECT_EQ(stem + "|" + ext, "|profile");
    ASSERT_TRUE(split_file_name("README", folder, stem, ext));
    EXPECT_EQ(stem + "|" + ext, "README|");
    EXPECT_FALSE(split_file_name("", folder, stem, ext));
}

TEST(Trim, NarrowIsSetBasedWideIsOneClassAtATime) {
    std::string s;
    EXPECT_FALSE(trim_whitespace(s));
    s = " \t";
    EXPECT_FALSE(trim_whitespace(s));
    EXPECT_EQ(s, "");
    s = "\r\n a b\t\n";
    EXPECT_TRUE(trim_whitespace(s));
    EXPECT_EQ(s, "a b");

    std::wstring w = L"\t x";
    EXPECT_TRUE(trim_whitespace_wide(w));
    EXPECT_EQ(w, L" x");                     // a blank behind a leading tab stays
    w = L"x \n";
    EXPECT_TRUE(trim_whitespace_wide(w));
    EXPECT_EQ(w, L"x ");
    w = L"   ";
    EXPECT_FALSE(trim_whitespace_wide(w));
    EXPECT_EQ(w, L"");

    s = "line\r\n\n";
    EXPECT_EQ(strip_line_end(s), 3);
    EXPECT_EQ(s, "line");
    s = "abc";
    EXPECT_TRUE(drop_last_chars(s, 5));
    EXPECT_EQ(s, "");
    EXPECT_FALSE(drop_last_chars(s, 1));
    w = L"dir\\//";
    EXPECT_TRUE(strip_trailing_slashes_wide(w));
    EXPECT_EQ(w, L"dir");
}

TEST(Replace, Forms) {
    std::string s = "a,b,,c";
    replace_char(s, ',', ';', false);
    EXPECT_EQ(s, "a;b;;c");
    s = "aAa";
    replace_char(s, 'a', 'a', false);
    EXPECT_EQ(s, "aAa");
    replace_char(s, 'a', '_', true);
    EXPECT_EQ(s, "___");

    // With ignore_case the search text itself is lowered, and the caller sees it.
    std::string find = "WORLD";
    s = "Hello World";
    EXPECT_TRUE(replace_first(s, find, "there", true));
    EXPECT_EQ(s, "Hello there");
    EXPECT_EQ(find, "world");
    std::string empty_find;
    s.clear();
    EXPECT_FALSE(replace_first(s, empty_find, "x", false));

    std::string out = "stale";
    EXPECT_EQ(replace_all(out, "aaa-aa", "aa", "b"), "ba-b");   // occurrences do not overlap
    EXPECT_EQ(replace_all(out, "x.y.z", ".", ""), "xyz");
    EXPECT_EQ(replace_all(out, "", ".", "x"), "");

    s = "a\nb\n";
    EXPECT_EQ(remove_char(s, '\n'), 2);
    EXPECT_EQ(s, "ab");
}

TEST(CopyPrintableText, NulEndsReplacementOrDrop) {
    std::string out;
    const uint8_t nul[] = {0x41, 0x00, 0x42};
    EXPECT_TRUE(copy_printable_text(out, nul, 3, false, ' '));
    EXPECT_EQ(out, "A");
    const uint8_t bell[] = {0x41, 0x07, 0x42, 0x0A, 0x0D, 0xFF};
    EXPECT_TRUE(copy_printable_text(out, bell, 3, false, ' '));
    EXPECT_EQ(out, "A B");
    EXPECT_TRUE(copy_printable_text(out, bell, 3, false, 0));
    EXPECT_EQ(out, "AB");
    EXPECT_TRUE(copy_printable_text(out, bell, 6, true, '?'));
    EXPECT_EQ(out, "A?B\n\r?");
    EXPECT_FALSE(copy_printable_text(out, bell, 0, false, ' '));
    EXPECT_FALSE(copy_printable_text(out, nullptr, 3, false, ' '));
    EXPECT_EQ(out, "");
}

TEST(ParseUintText, Forms) {
    struct row { const char* text; bool ok; uint32_t value; };
    const row rows[] = {
        {"0x10", true, 16}, {"x10", true, 16}, {"X1f", true, 31}, {"1x1F", true, 31},
        {"o10", true, 8},   {"'A'", true, 65}, {"10", true, 10},  {"12abc", true, 12},
        {"+7", true, 7},    {"-1", true, 0xFFFFFFFFu},             {"abc", false, 0},
        {" 12", false, 0},  // the blank first is refused although the copy is clean
        {"", false, 0},
    };
    for (const row& r : rows) {
        uint32_t v = 99;
        EXPECT_EQ(parse_uint_text(r.text, &v), r.ok) << r.text;
        EXPECT_EQ(v, r.value) << r.text;
    }
    uint32_t v = 1;
    EXPECT_FALSE(parse_uint_text(nullptr, &v));
    EXPECT_EQ(v, 0u);
}

TEST(ExpandPathText, EnvironmentAndShadowCopyForms) {
    setenv("RAVEL_T_DIR", "/home/u", 1);
    setenv("RAVEL_T_CHAIN", "%RAVEL_T_DIR%/c", 1);
    unsetenv("RAVEL_T_NOTSET");
    unsetenv("vss");
    EXPECT_EQ(expand_path_text("%RAVEL_T_DIR%/index.dat", true), "/home/u/index.dat");
    EXPECT_EQ(expand_path_text("%RAVEL_T_CHAIN%/x", true), "/home/u/c/x");   // a value is scanned in its turn
    EXPECT_EQ(expand_path_text("%RAVEL_T_NOTSET%/x", true), "%RAVEL_T_NOTSET%/x");
    EXPECT_EQ(expand_path_text("50% off", true), "50% off");
    EXPECT_EQ(expand_path_text("%vss%3\\x", true), "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\x");
    EXPECT_EQ(expand_path_text("%VSS%3", false), "%VSS%3");

    const std::string long_text(513, 'a');
    EXPECT_EQ(expand_path_text(long_text + "%RAVEL_T_DIR%", true), long_text + "%RAVEL_T_DIR%");
    setenv("RAVEL_T_SELF", "%RAVEL_T_SELF%", 1);
    EXPECT_EQ(expand_path_text("%RAVEL_T_SELF%", true), "%RAVEL_T_SELF%");   // ends, does not hang
}
