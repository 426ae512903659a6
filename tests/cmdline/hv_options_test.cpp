#include "cmdline/hv_options.h"

#include <gtest/gtest.h>

#include <tuple>

#include "cmdline/hv_cmd_params.h"

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
