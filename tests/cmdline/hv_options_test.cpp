#include "cmdline/hv_options.h"

#include <gtest/gtest.h>

#include <tuple>

#include "cmdline/hv_cmd_params.h"
#include "cmdline/hv_host.h"
#include "support/run_ravel.h"

namespace {

struct parsed { bool ok = false; arg_list left; std::string err; };

// Runs the table on "prog" + words, capturing standard error.
parsed parse(cmd_opts& opts, arg_list words) {
    parsed r{false, {"prog"}, ""};
    r.left.insert(r.left.end(), words.begin(), words.end());
    testing::internal::CaptureStderr();
    r.ok = parse_options(opts, r.left);
    r.err = testing::internal::GetCapturedStderr();
    return r;
}

}  // namespace

TEST(OptionsTest, SeparatorFollowsTableOrderNotLineOrder) {
    const std::pair<arg_list, std::string> rows[] = {
        {{"-csv", "-csvgen"}, ","},      {{"-bodyfile", "-csv"}, "|"},   {{"-csv_separator", "|", "-csv"}, "|"},
        {{"-csv_separator", "\\T"}, "\t"}, {{"-csv_separator", ""}, ""},
        {{"-csv_separator", "-csv"}, ","},   // -csv is claimed first, leaving no value
        {{"-csv_separator"}, ","},           // last on the line: absent
        {{"-enable_quoted_csv_fields", "-csv_separator", " | "}, "|"},
        {{"-no_whitespace", "-csv_separator", " | "}, "|"},
    };
    for (const auto& [words, separator] : rows) {
        cmd_opts opts;
        EXPECT_TRUE(parse(opts, words).ok);
        EXPECT_EQ(opts.separator, separator) << words[0];
    }
    cmd_opts multiline;   // the table claims -xml first, then -multiline wins and keeps the header
    ASSERT_TRUE(parse(multiline, {"-multiline", "-xml"}).ok);
    EXPECT_TRUE(multiline.separator.empty() && multiline.header_pending && multiline.format_multiline);
}

TEST(OptionsTest, DateAndTimeValues) {
    struct row { const char *option, *value, *stored; };   // stored "": refused, the default stays
    const row rows[] = {
        {"-dateformat", "MM/DD/YYYY", "mm/dd/yyyy"}, {"-dateformat", "abcdefgh", "abcdefgh"},
        {"-dateformat", "m/d/yy", ""},               {"-timeformat", "hh:mm:ss.xxxxxx", "hh:mm:ss.xxxxxx"},
        {"-timeformat", "hhmmssxx", ""},
    };
    for (const row& r : rows) {
        cmd_opts formats;
        const parsed p = parse(formats, {r.option, r.value});
        const bool date = std::string(r.option) == "-dateformat";
        EXPECT_EQ(date ? formats.date_format : formats.time_format,
                  *r.stored ? r.stored : date ? "yyyy-mm-dd" : "hh:mm:ss.xxx");
        EXPECT_EQ(p.err, *r.stored ? "" : std::string("invalid ") + r.value + ", using default format\n");
    }
    cmd_opts opts;   // times: a start alone has an open end
    ASSERT_TRUE(parse(opts, {"-cmd_start_time", "2012-05-30"}).ok);
    EXPECT_TRUE(opts.start_time_valid && opts.stop_time_valid);
    EXPECT_EQ(std::make_tuple(opts.start_time_unix, opts.start_time_filetime, opts.stop_time_unix),
              std::make_tuple(1338336000u, 129828096000000000ull, 0xFFFFFFFFu));
    // The stop's time part is never read; a date without a colon fails and clears the open end.
    parsed p = parse(opts, {"-cmd_start_time", "2012/05/30 10:00:00", "-cmd_stop_time", "2012-05-30 12:00:00"});
    EXPECT_EQ(p.err, "invalid stop time, ignoring\n");
    EXPECT_EQ(opts.start_time_unix, 1338372000u);
    EXPECT_FALSE(opts.stop_time_valid || opts.stop_time_unix);
    p = parse(opts, {"-cmd_start_time", "2012-13-40"});
    EXPECT_EQ(p.err, "invalid start time, ignoring\n");
    EXPECT_FALSE(opts.start_time_valid || opts.stop_time_valid || !p.ok);
    p = parse(opts, {"-cmd_stop_time", "20120530"});   // neither '/' nor '-': the table fails, without a word
    EXPECT_FALSE(p.ok || !p.err.empty());
}

TEST(OptionsTest, FailuresAndTheirMessages) {
    const std::pair<arg_list, std::string> rows[] = {
        {{"-sqlite_log", "x"}, "This option is not offered in this build\n"},
        {{"-alias", " | "}, "imbalanced alias to true pathfiles, aborting\n"},
        {{"-aliaspath", "a|b|c"}, "imbalanced alias to true pathfiles, aborting\n"},
    };
    for (const auto& [words, err] : rows) {
        cmd_opts opts;
        const parsed p = parse(opts, words);
        EXPECT_FALSE(p.ok) << words[0];
        EXPECT_EQ(p.err, err);
    }
    cmd_opts opts;
    arg_list none;
    EXPECT_FALSE(parse_options(opts, none));
}

TEST(OptionsTest, StoredOptionsAreAllClaimed) {
    cmd_opts opts;
    const parsed p = parse(opts, {"-pair_datetime", "-gzip", "-zlib", "-threads", "x1F", "-zlibex", "z", "-signal",
                                  "s", "-hostname", "h", "-split_pathfile", "-username", "u", "-cpuinst", "4", "-cpu",
                                  "0x10", "-fragment_files", "3", "-separate_files", "-outdir", "/o", "-enumdir", "/e",
                                  "-num_subdirs", "2", "-profile", "-pipe", "-base10", "-base16", "-verbose", "-v",
                                  "-quiet", "-alias", "A|%NOT_SET_ANYWHERE%|b|c", "-aliaspath", "X/|\"y\"/"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.left, (arg_list{"prog", "-v"}));   // -v is looked for only without -verbose
    EXPECT_EQ(std::vector<int64_t>({opts.threads, opts.cpu_instances, opts.cpu_limit, opts.fragment_files,
                                    opts.num_subdirs}),
              std::vector<int64_t>({31, 4, 16, 3, 2}));
    EXPECT_TRUE(opts.compress && opts.compress_gzip && opts.compress_zlib && opts.compress_zlibex);
    EXPECT_TRUE(opts.separate_files && opts.outdir_given && opts.enum_dir_given && opts.pipe_input);
    EXPECT_TRUE(opts.profile && opts.base16 && opts.hostname_given && opts.username_given && !opts.show_progress);
    EXPECT_EQ(opts.file_alias_map, (std::map<std::string, std::string>{{"a", "%NOT_SET_ANYWHERE%"}, {"b", "c"}}));
    EXPECT_EQ(opts.path_alias_map, (std::map<std::string, std::string>{{"x", "y"}}));
    cmd_opts lone;
    EXPECT_TRUE(parse(lone, {"-aliaspath", " | "}).ok);   // a split that yields nothing is no failure
    EXPECT_EQ(lone.path_alias_map.at("*"), " | ");
}

TEST(OptionsTest, FilterLoopsAndTheirNumbers) {
    cmd_opts opts;
    const parsed p = parse(opts, {"-filter", "*.dat", "-filter_path", "/X", "-filter_path", "*.log", "-filter", "b",
                                  "-filter_sig", "", "-filter_sig", "ff,o17"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.left, (arg_list{"prog", "-filter", "b"}));   // a second -filter is not claimed
    ASSERT_EQ(opts.name_filters.size(), 3u);                  // an empty signature adds nothing
    EXPECT_EQ(opts.name_filters[0].path, L"/x");
    EXPECT_EQ(opts.name_filters[1].name, L".log");   // the second -filter_path became a list
    EXPECT_EQ(opts.name_filters[2].signature, (std::vector<uint8_t>{0xff}));
    EXPECT_EQ(opts.name_filters[2].signature_offset, 15u);
    const std::pair<const char*, uint64_t> offsets[] = {   // 0: refused
        {"X1f", 31}, {"o17", 15}, {"  42", 42}, {"x1", 0}, {"4 2", 0}, {"12a", 0}, {"0x12345678901234567", 0}};
    for (const auto& [text, value] : offsets) {
        uint64_t out = 99;
        EXPECT_EQ(parse_sig_offset(text, out), value != 0) << text;
        EXPECT_EQ(out, value) << text;
    }
}

TEST(OptionsTest, OutProbeAndDiags) {
    testsupport::temp_dir dir;
    const std::string report = dir.file("r.txt"), log = dir.file("d.log");
    testsupport::write_file(report, "old report");
    cmd_opts opts;
    parsed p = parse(opts, {"-out", report, "-outfile", "y", "-append", "-diags", log, "-l3", "-l2"});
    EXPECT_TRUE(p.ok && opts.out_path == report && opts.diags_on && opts.diags_level == 2);
    EXPECT_EQ(p.left, (arg_list{"prog", "-outfile", "y", "-append", "-l3"}));
    EXPECT_FALSE(std::ifstream(report).good());   // removed even with -append; main makes it anew
    EXPECT_EQ(testsupport::read_file(log),
              "->prog -out " + report + " -outfile y -append -diags " + log + " -l3 -l2\n");
    cmd_opts lost;
    p = parse(lost, {"-diags", dir.file("no/such/d.log"), "-l2"});
    EXPECT_FALSE(!p.ok || lost.diags_on || lost.diags_stream || !lost.diags_path.empty());
    EXPECT_EQ(p.left, (arg_list{"prog", "-l2"}));
}

TEST(HostTest, ProductVersionAndOsText) {
    for (auto [version, numbers] :
         {std::pair{"10.9", "10 9 0"}, {"10.9.5", "10 9 5"}, {"11", "11 0 0"}, {"", "0 0 0"}}) {
        cmd_opts opts;
        parse_host_product_version(opts, std::string("<key>ProductVersion</key>\n\t<string>") + version + "</string>");
        EXPECT_EQ(opts.host_os_version, version);
        EXPECT_EQ(std::to_string(opts.host_os_major) + " " + std::to_string(opts.host_os_minor) + " " +
                      std::to_string(opts.host_os_patch), numbers);
    }
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
