#include "cmdline/hv_options.h"

#include <gtest/gtest.h>

#include "cmdline/hv_cmd_params.h"
#include "cmdline/hv_host.h"
#include "foundation/hv_string.h"
#include "support/run_ravel.h"

namespace {

struct parsed {
    bool ok = false;
    arg_list left;
    std::string err;
};

// Runs the table on "prog" + words, capturing standard error.
parsed parse(cmd_opts& opts, arg_list words) {
    parsed r;
    r.left = {"prog"};
    r.left.insert(r.left.end(), words.begin(), words.end());
    testing::internal::CaptureStderr();
    r.ok = parse_options(opts, r.left);
    r.err = testing::internal::GetCapturedStderr();
    return r;
}

}  // namespace

TEST(OptionsTest, SeparatorFollowsTableOrderNotLineOrder) {
    struct row {
        arg_list words;
        std::string separator;
        bool header_pending;
    } rows[] = {
        {{"-csv", "-csvgen"}, ",", true},
        {{"-bodyfile", "-csv"}, "|", true},
        {{"-csv_separator", "|", "-csv"}, "|", true},
        {{"-csv_separator", "TAB"}, "\t", true},
        {{"-csv_separator", "\\T"}, "\t", true},
        {{"-csv_separator", ""}, "", true},
        {{"-csv_separator", "-quiet"}, "-quiet", true},  // a value that looks like an option
        {{"-csv_separator", "-csv"}, ",", true},  // -csv is claimed first, leaving no value
        {{"-xml"}, "", false},
        {{"-multiline", "-xml"}, "", true},
        {{"-enable_quoted_csv_fields", "-csv_separator", " | "}, "|", true},
        {{"-no_whitespace", "-csv_separator", " | "}, "|", true},
        {{"-csv_separator"}, ",", true},  // last on the line: absent
    };
    for (const auto& r : rows) {
        cmd_opts opts;
        parsed p = parse(opts, r.words);
        EXPECT_TRUE(p.ok);
        EXPECT_EQ(opts.separator, r.separator) << r.words[0];
        EXPECT_EQ(opts.header_pending, r.header_pending) << r.words[0];
    }
}

TEST(OptionsTest, SetSeparatorDerivesItsCharacters) {
    cmd_opts opts;
    set_separator(opts, "A,B", true);
    EXPECT_EQ(std::string() + opts.separator_char + opts.subseparator_char, ",;");
    opts.quoted_csv = true;
    set_separator(opts, " | ", false);
    EXPECT_EQ(opts.separator_char + opts.subseparator_char, 0);
}

TEST(OptionsTest, DateAndTimeFormatsAcceptByLengthAlone) {
    struct row {
        const char *option, *value, *stored;  // stored "" : refused, the default stays
    } rows[] = {
        {"-dateformat", "mm/dd/yy", "mm/dd/yy"},  {"-dateformat", "MM/DD/YYYY", "mm/dd/yyyy"},
        {"-dateformat", "abcdefgh", "abcdefgh"},  {"-dateformat", "m/d/yy", ""},
        {"-timeformat", "hh:mm:ss", "hh:mm:ss"},  {"-timeformat", "hh:mm:ss.xxxxxx", "hh:mm:ss.xxxxxx"},
        {"-timeformat", "hhmmss", ""},            {"-timeformat", "hhmmssxx", ""},
    };
    for (const auto& r : rows) {
        cmd_opts opts;
        parsed p = parse(opts, {r.option, r.value});
        bool date = std::string(r.option) == "-dateformat";
        std::string expected = *r.stored ? r.stored : date ? "yyyy-mm-dd" : "hh:mm:ss.xxx";
        EXPECT_EQ(date ? opts.date_format : opts.time_format, expected);
        EXPECT_EQ(p.err, *r.stored ? "" : std::string("invalid ") + r.value + ", using default format\n");
    }
}

TEST(OptionsTest, StartAndStopTimeQuirks) {
    cmd_opts opts;
    ASSERT_TRUE(parse(opts, {"-cmd_start_time", "2012-05-30"}).ok);
    EXPECT_TRUE(opts.start_time_valid && opts.stop_time_valid);  // a start alone has an open end
    EXPECT_EQ(opts.start_time_unix, 1338336000u);
    EXPECT_EQ(opts.start_time_filetime, 129828096000000000ULL);
    EXPECT_EQ(opts.stop_time_unix, 0xFFFFFFFFu);

    // The stop's time part is never read; a date without a colon fails and clears the open end.
    parsed p = parse(opts, {"-cmd_start_time", "2012/05/30 10:00:00", "-cmd_stop_time", "2012-05-30 12:00:00"});
    EXPECT_EQ(p.err, "invalid stop time, ignoring\n");
    EXPECT_EQ(opts.start_time_unix, 1338372000u);
    EXPECT_FALSE(opts.stop_time_valid || opts.stop_time_unix);

    p = parse(opts, {"-cmd_start_time", "2012-13-40"});
    EXPECT_EQ(p.err, "invalid start time, ignoring\n");
    EXPECT_FALSE(opts.start_time_valid || opts.stop_time_valid || !p.ok);

    // A date with neither '/' nor '-' fails the whole table, without a word.
    for (const char* option : {"-cmd_start_time", "-cmd_stop_time"}) {
        p = parse(opts, {option, "20120530"});
        EXPECT_FALSE(p.ok || !p.err.empty());
    }
}

TEST(OptionsTest, FailuresAndTheirMessages) {
    struct row {
        arg_list words;
        std::string err;
    } rows[] = {
        {{"-sqlite", "x"}, "This option is not offered in this build\n"},
        {{"-sqlite_log", "x"}, "This option is not offered in this build\n"},
        {{"-alias", "a|b|c"}, "imbalanced alias to true pathfiles, aborting\n"},
        {{"-alias", " | "}, "imbalanced alias to true pathfiles, aborting\n"},
        {{"-aliaspath", "a|b|c"}, "imbalanced alias to true pathfiles, aborting\n"},
        {{"-out", "/nonexistent-dir/r.txt"}, "prob opening file /nonexistent-dir/r.txt for output, aborting\n"},
    };
    for (const auto& r : rows) {
        cmd_opts opts;
        parsed p = parse(opts, r.words);
        EXPECT_FALSE(p.ok) << r.words[0];
        EXPECT_EQ(p.err, r.err);
    }
    cmd_opts opts;
    EXPECT_TRUE(parse(opts, {"-sqlite"}).ok);  // no value: absent
    arg_list none;
    EXPECT_FALSE(parse_options(opts, none));
}

TEST(OptionsTest, StoredOptionsAreAllClaimed) {
    cmd_opts opts;
    parsed p = parse(opts, {"-pair_datetime", "-gzip", "-zlib", "-threads", "x1F", "-zlibex", "z", "-signal", "s",
                            "-hostname", "h", "-split_pathfile", "-username", "u", "-cpuinst", "4", "-cpu", "0x10",
                            "-fragment_files", "3", "-separate_files", "-outdir", "/o", "-enumdir", "/e",
                            "-num_subdirs", "2", "-profile", "-pipe", "-base10", "-base16", "-verbose", "-v",
                            "-quiet", "-alias", "A|%NOT_SET_ANYWHERE%|b|c", "-aliaspath", "X/|\"y\"/"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.left, (arg_list{"prog", "-v"}));  // -v is looked for only without -verbose
    EXPECT_EQ(std::vector<int64_t>({opts.threads, opts.cpu_instances, opts.cpu_limit, opts.fragment_files,
                                    opts.num_subdirs}),
              std::vector<int64_t>({31, 4, 16, 3, 2}));
    EXPECT_TRUE(opts.compress && opts.compress_gzip && opts.compress_zlib && opts.compress_zlibex);
    EXPECT_TRUE(opts.separate_files && opts.outdir_given && opts.enum_dir_given && opts.pipe_input);
    EXPECT_TRUE(opts.profile && opts.base16 && opts.hostname_given && opts.username_given && !opts.show_progress);
    EXPECT_EQ(opts.file_alias_map.at("a"), "%NOT_SET_ANYWHERE%");
    EXPECT_EQ(opts.file_alias_map.at("b"), "c");
    EXPECT_EQ(opts.path_alias_map.at("x"), "y");

    cmd_opts lone;
    EXPECT_TRUE(parse(lone, {"-aliaspath", " | "}).ok);  // a split that yields nothing is no failure
    EXPECT_EQ(lone.path_alias_map.at("*"), " | ");
    EXPECT_EQ(lone.program_name, "prog");
}

TEST(OptionsTest, FilterLoopsAndSignatures) {
    cmd_opts opts;
    parsed p = parse(opts, {"-filter", "*.dat", "-filter_path", "/X", "-filter_path", "*.log", "-filter", "b",
                            "-filter_sig", "4d 5a|0x10", "-filter_sig", "", "-filter_sig", "ff,o17"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.left, (arg_list{"prog", "-filter", "b"}));  // a second -filter is not claimed
    ASSERT_EQ(opts.name_filters.size(), 4u);
    EXPECT_EQ(opts.name_filters[0].path, L"/x");
    EXPECT_EQ(opts.name_filters[0].path_length, 2u);
    EXPECT_EQ(opts.name_filters[1].name, L".log");  // the second -filter_path became a list
    EXPECT_EQ(opts.name_filters[2].signature, (std::vector<uint8_t>{0x4d, 0x5a}));
    EXPECT_EQ(opts.name_filters[2].signature_offset, 16u);
    EXPECT_EQ(opts.name_filters[3].signature, (std::vector<uint8_t>{0xff}));
    EXPECT_EQ(opts.name_filters[3].signature_offset, 15u);
}

TEST(OptionsTest, NumberReaders) {
    struct row {
        const char* text;
        bool ok;
        uint64_t value;
    } offsets[] = {{"0x10", true, 16}, {"X1f", true, 31},      {"o17", true, 15}, {"  42", true, 42},
                   {"x1", false, 0},   {"4 2", false, 0},      {"12a", false, 0}, {"0x", false, 0},
                   {"0x12345678901234567", false, 0}, {"123456789012345678901234567890x", false, 0}};
    for (const auto& r : offsets) {
        uint64_t out = 99;
        EXPECT_EQ(parse_sig_offset(r.text, out), r.ok) << r.text;
        EXPECT_EQ(out, r.value) << r.text;
    }
    int32_t n = 7;
    EXPECT_FALSE(parse_signed_number("abc", n));
    EXPECT_TRUE(parse_signed_number(" -12 ", n) && n == -12);
    EXPECT_TRUE(parse_signed_number("0o17", n) && n == 15);

    std::vector<std::string> pieces;
    split_list_any("a;b|c", "|,;", pieces);
    EXPECT_EQ(pieces, (std::vector<std::string>{"a;b", "c"}));
    split_list_any(" | ", "|", pieces);
    EXPECT_EQ(pieces, (std::vector<std::string>{" | "}));
}

TEST(OptionsTest, OutProbeAndDiags) {
    testsupport::temp_dir dir;
    std::string report = dir.file("r.txt");
    testsupport::write_file(report, "old report");
    cmd_opts opts;
    parsed p = parse(opts, {"-out", report, "-outfile", "y", "-append"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(opts.out_path, report);
    EXPECT_EQ(p.left, (arg_list{"prog", "-outfile", "y", "-append"}));
    EXPECT_FALSE(std::ifstream(report).good());  // removed even with -append; main makes it anew

    std::string log = dir.file("d.log");
    cmd_opts traced;
    p = parse(traced, {"-diags", log, "-l3", "-l2"});
    EXPECT_TRUE(traced.diags_on && traced.diags_level == 2);
    EXPECT_EQ(p.left, (arg_list{"prog", "-l3"}));
    EXPECT_EQ(testsupport::read_file(log), "->prog -diags " + log + " -l3 -l2\n");

    cmd_opts lost;
    p = parse(lost, {"-diags", dir.file("no/such/d.log"), "-l2"});
    EXPECT_FALSE(!p.ok || lost.diags_on || lost.diags_stream || !lost.diags_path.empty());
    EXPECT_EQ(p.left, (arg_list{"prog", "-l2"}));
}

TEST(HostTest, ProductVersionAndOsText) {
    struct row {
        const char* version;
        uint32_t major, minor, patch;
    } rows[] = {{"10.9", 10, 9, 0}, {"10.9.5", 10, 9, 5}, {"11", 11, 0, 0}, {"", 0, 0, 0}};
    for (const auto& r : rows) {
        cmd_opts opts;
        parse_host_product_version(
            opts, std::string("<key>ProductVersion</key>\n\t<string>") + r.version + "</string>");
        EXPECT_EQ(opts.host_os_version, r.version);
        EXPECT_EQ(std::vector<uint32_t>({opts.host_os_major, opts.host_os_minor, opts.host_os_patch}),
                  std::vector<uint32_t>({r.major, r.minor, r.patch}));
    }
    cmd_opts absent;
    read_host_product_version(absent, "/nonexistent/SystemVersion.plist");
    EXPECT_TRUE(absent.host_os_version.empty());

    os_version_info info;
    info.os_name = "Sys;tem", info.os_version = "v1", info.os_release = "6.1.2-rc", info.node_name = "box";
    info.is_64bit = true, info.program_path = "/Bin/Tool_x";
    std::ostringstream text("stale");
    write_os_text(info, text, ";", " ", false, false);
    EXPECT_EQ(text.str(), "Sys tem;v1;6.1.2-rc;64");
    info.short_release = true, info.extra_value = 0xab;
    write_os_text(info, text, ";", " ", true, true);
    EXPECT_EQ(text.str(), "Sys tem;box;v1;6.1.2;64;/bin/tool_x;ab");
    ASSERT_TRUE(fill_os_version_info(info, "/usr/bin/ravel_cli"));
    EXPECT_EQ(info.program_stem, "ravel");
}
