#include "cmdline/hv_args.h"

#include <gtest/gtest.h>

#include "cmdline/hv_cmd_params.h"
#include "cmdline/hv_options.h"

TEST(ArgsTest, WordsMatchWholeAndInAnyCase) {
    EXPECT_TRUE(option_equal("-CSV", "-csv") && option_equal("-Csv", "-cSV"));
    EXPECT_FALSE(option_equal("-cs", "-csv") || option_equal("-csv", "-csvgen"));
    arg_list args = {"prog", "-Quiet", "-quiet"};
    EXPECT_TRUE(take_flag("-quiet", args));
    EXPECT_EQ(args, (arg_list{"prog", "-quiet"}));   // only the first match goes
    EXPECT_TRUE(take_flag("-QUIET", args, true) && args.size() == 2);   // kept
    arg_list odd = {"-f", "x"};   // element 0 takes part unless skipped: a program file called "-f" matches
    EXPECT_TRUE(has_flag("-f", odd) && !has_flag("-f", odd, true));
}

TEST(ArgsTest, TakeOptionTakesTheNextWordWhateverItLooksLike) {
    arg_list args = {"prog", "-out", "-csv", "-f", "a", "-f", "b", "-dateformat"};
    std::string value = "untouched", peeked;
    EXPECT_TRUE(take_option("-out", value, args));
    EXPECT_EQ(value, "-csv");
    EXPECT_TRUE(peek_option("-f", peeked, args) && take_option("-f", value, args));
    EXPECT_EQ(peeked + value, "aa");
    EXPECT_EQ(args, (arg_list{"prog", "-f", "b", "-dateformat"}));   // the second pair is left over
    value = "kept";   // last on the line: counts as absent, stays, and the value is left alone
    EXPECT_FALSE(take_option("-dateformat", value, args) || peek_option("-dateformat", value, args));
    EXPECT_FALSE(take_option("-missing", value, args));
    EXPECT_EQ(value + "|" + args.back(), "kept|-dateformat");
}

TEST(ArgsTest, ArgvAndCommandLine) {
    const char* argv[] = {"/bin/ravel", nullptr, "a b", "-f"};
    arg_list args;
    EXPECT_FALSE(args_from_argv(args, 0, argv));
    EXPECT_TRUE(args_from_argv(args, 4, argv));
    EXPECT_EQ(args, (arg_list{"/bin/ravel", "", "a b", "-f"}));
    std::string dq, sq;
    EXPECT_TRUE(join_command_line(dq, args, '"') && join_command_line(sq, args, '\''));
    EXPECT_EQ(dq + "|" + sq, "/bin/ravel  \"a b\" -f|/bin/ravel  'a b' -f");
    EXPECT_TRUE(!remove_arg(4, args) && remove_arg(1, args) && args.size() == 3);
}

TEST(ArgsTest, RecordDefaultsAndNames) {
    cmd_opts opts;
    opts.separator = "|", opts.current_file = "x";
    opts.diags_stream.reset(new std::ofstream("/dev/null"));
    opts.clear();
    EXPECT_EQ(opts.separator + opts.separator_char + opts.subseparator_char, ",; ");
    EXPECT_TRUE(opts.format_csv && opts.current_file.empty() && !opts.diags_stream && opts.cpu_instances == -1);
    arg_list args = {"/usr/local/bin/tool.v2.x", "a b"};
    ASSERT_TRUE(parse_options(opts, args));
    EXPECT_EQ(opts.program_name + "|" + opts.command_line, "tool.v2|/usr/local/bin/tool.v2.x \"a b\"");
}
