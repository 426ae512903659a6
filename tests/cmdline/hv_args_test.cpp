#include "cmdline/hv_args.h"

#include <gtest/gtest.h>

#include "cmdline/hv_cmd_params.h"

TEST(ArgsTest, WordsMatchWholeAndInAnyCase) {
    EXPECT_TRUE(option_equal("-CSV", "-csv") && option_equal("-Csv", "-cSV"));
    EXPECT_FALSE(option_equal("-cs", "-csv") || option_equal("-csv", "-csvgen"));

    arg_list args = {"prog", "-Quiet", "-quiet"};
    EXPECT_TRUE(take_flag("-quiet", args));
    EXPECT_EQ(args, (arg_list{"prog", "-quiet"}));  // only the first match goes
    EXPECT_TRUE(take_flag("-QUIET", args, true));
    EXPECT_EQ(args.size(), 2u);  // kept

    // Element 0 takes part unless skipped: a program file called "-f" matches.
    arg_list odd = {"-f", "x"};
    EXPECT_TRUE(has_flag("-f", odd));
    EXPECT_FALSE(has_flag("-f", odd, true));
}

TEST(ArgsTest, TakeOptionTakesTheNextWordWhateverItLooksLike) {
    arg_list args = {"prog", "-out", "-csv", "-f", "a", "-f", "b", "-dateformat"};
    std::string value = "untouched";
    EXPECT_TRUE(take_option("-out", value, args));
    EXPECT_EQ(value, "-csv");

    EXPECT_TRUE(peek_option("-f", value, args));
    EXPECT_EQ(value, "a");
    EXPECT_TRUE(take_option("-f", value, args));
    EXPECT_EQ(value, "a");
    EXPECT_EQ(args, (arg_list{"prog", "-f", "b", "-dateformat"}));  // the second pair is left over

    // Last on the line: counts as absent, stays, and the value is left alone.
    value = "kept";
    EXPECT_FALSE(take_option("-dateformat", value, args));
    EXPECT_FALSE(peek_option("-dateformat", value, args));
    EXPECT_FALSE(take_option("-missing", value, args));
    EXPECT_EQ(value, "kept");
    EXPECT_EQ(args.back(), "-dateformat");
}

TEST(ArgsTest, ArgvAndCommandLine) {
    const char* argv[] = {"/bin/ravel", nullptr, "a b", "-f"};
    arg_list args;
    EXPECT_FALSE(args_from_argv(args, 0, argv));
    EXPECT_TRUE(args_from_argv(args, 4, argv));
    EXPECT_EQ(args, (arg_list{"/bin/ravel", "", "a b", "-f"}));

    std::string line;
    EXPECT_TRUE(join_command_line(line, args, '"'));
    EXPECT_EQ(line, "/bin/ravel  \"a b\" -f");
    join_command_line(line, args, '\'');
    EXPECT_EQ(line, "/bin/ravel  'a b' -f");

    EXPECT_FALSE(remove_arg(4, args));
    EXPECT_TRUE(remove_arg(1, args));
    EXPECT_EQ(args.size(), 3u);
}

TEST(ArgsTest, RecordClearRestoresThisProgramsDefaults) {
    cmd_opts opts;
    opts.separator = "|";
    opts.current_file = "x";
    opts.diags_stream.reset(new std::ofstream("/dev/null"));
    opts.clear();
    EXPECT_EQ(opts.separator + opts.separator_char + opts.subseparator_char, ",; ");
    EXPECT_TRUE(opts.format_csv && opts.current_file.empty() && !opts.diags_stream);
    EXPECT_EQ(opts.cpu_instances, -1);
}
