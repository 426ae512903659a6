// The command line seen from outside: usage, preamble, the option table's effects on the report,
// where each text goes, and the exit status of every failure of the run.
#include <gtest/gtest.h>

#include <regex>

#include "support/readme_options.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// The usage text as it always was; the section of later options follows it.
std::string original_usage() {
    return "-----------------------------------------------------------------------------\n\n"
           "ravel ver: 0.93\n\n"
           "Usage:\n"
           "\n"
           "  ravel -f <file>\n"
           "  ravel -partition <drive letter>          = Partition scan\n"
           "  ravel -vmdk \"<file1> | <file2> | ...\"    = VMWare disk scan\n"
           "    find <starting path> -name *.dat -type f | <path of ravel> -pipe\n"
           "  ravel -enumdir <folder> -num_subdirs <#> [options]\n"
           "\n"
           " Basic options\n"
           "  -pipe                     = pipe files into app for processing\n"
           "  -dateformat mm/dd/yyyy    = \"yyyy-mm-dd\" is the default\n"
           "  -timeformat hh:mm:ss      = \"hh:mm:ss.xxx\" is the default\n"
           "  -csv_separator \"|\"        = use a pipe char for separator\n"
           "  -filter <*partial*|*.ext> = filters stdin data from -pipe option\n"
           "\n";
}

// The whole usage text, as this build prints it (checked against the original and the README below).
const std::string& usage() {
    static const std::string text = run_ravel({"-h"}).err;
    return text;
}

// The preamble (three lines and the empty line); "" when it isn't there.
std::string preamble_of(const std::string& out) {
    size_t end = out.find("\n\n");
    return end == std::string::npos ? "" : out.substr(0, end + 2);
}

// The run line's date, time, host and system change from run to run; the rest is fixed.
std::string expected_preamble(const std::string& args_text) {
    return "ravel ver: 0.93\nRun time: DATE TIME UTC; Computer: HOST; OS: OS\n\"Command line: " + ravel_binary() +
           args_text + "\"\n\n";
}

std::string masked(const std::string& preamble) {
    static const std::regex run_line(
        "Run time: \\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d UTC; Computer: [^;\n]+; OS: [^\n]*;(32|64)\n");
    return std::regex_replace(preamble, run_line, "Run time: DATE TIME UTC; Computer: HOST; OS: OS\n");
}

}  // namespace

TEST(CmdlineE2E, UsageKeepsItsTextAndNamesEveryOptionThatActs) {
    ASSERT_EQ(usage().substr(0, original_usage().size()), original_usage());
    const std::string more = usage().substr(original_usage().size());
    EXPECT_TRUE(std::regex_match(more, std::regex(" More options\n(  [^\n]{25} = [^\n]+\n)+\n"))) << more;
    const std::vector<std::string> options = readme_options();
    EXPECT_GT(options.size(), 30u);
    // Each is in the original text or in the section behind it.
    for (const std::string& option : options)
        EXPECT_TRUE(names_option(original_usage(), option) || names_option(more, option)) << option;
}

TEST(CmdlineE2E, NoRoadGivesTheUsage) {
    // No argument or a help word: the usage alone.
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{}, {"-h"}, {"-help"}, {"/?"}, {"--help"}, {"-f", "x", "-sqlite", "y", "-H"}}) {
        const run_result r = run_ravel(args);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, usage());
        EXPECT_EQ(r.status, 0);
    }
    // Otherwise the preamble first; -f last on the line counts as absent.
    run_result r = run_ravel({"-quiet", "-unknown_word", "two words", "-f"});
    EXPECT_EQ(masked(r.out), expected_preamble(" -quiet -unknown_word 'two words' -f"));
    EXPECT_EQ(r.err, usage());  // -quiet: no erase at the end
    EXPECT_EQ(r.status, 0);

    // -dateformat shapes the run line's date; a bad form or time is told, and the run goes on.
    r = run_ravel({"-dateformat", "yyyy-mm-dd", "-pipe", "-enumdir"}, "");
    EXPECT_TRUE(std::regex_search(r.out, std::regex("\nRun time: \\d{4}-\\d\\d-\\d\\d ")));
    EXPECT_NE(r.out.find("\n\"Command line: <filelist> ... | "), std::string::npos);
    const std::pair<std::vector<std::string>, std::string> told[] = {
        {{"-timeformat", "hhmmss"}, "invalid hhmmss, using default format\n"},
        // Numbers that no field can hold make a bad time like any other.
        {{"-cmd_start_time", "2012-05-30 1e15:00"}, "invalid start time, ignoring\n"},
        {{"-cmd_start_time", "2012-05-30 10:15:1e30"}, "invalid start time, ignoring\n"},
    };
    for (const auto& [args, message] : told) {
        std::vector<std::string> quiet = {"-quiet"};
        quiet.insert(quiet.end(), args.begin(), args.end());
        r = run_ravel(quiet);
        EXPECT_EQ(r.err, message + usage()) << args[1];
        EXPECT_EQ(r.status, 0) << args[1];
    }
}

TEST(CmdlineE2E, FailuresOfTheRunAndTheirStatuses) {
    temp_dir dir;
    const std::string no_separator = "-complete needs a column separator: it is not offered with -xml or -multiline\n";
    struct row {
        std::vector<std::string> args;
        std::string err;
        int status;
    } rows[] = {
        {{"-sqlite_log", "db"}, "This option is not offered in this build\n", 255},
        {{"-alias", "a|b|c"}, "imbalanced alias to true pathfiles, aborting\n", 255},
        {{"-out", dir.file("no/r.txt")}, "prob opening file " + dir.file("no/r.txt") + " for output, aborting\n", 255},
        {{"-cmd_start_time", "20120530", "-f", "x"}, "", 255},
        {{"-partition", "/dev/sda"}, long_erase + "re-run [-partition] option w/ admin privileges" + long_erase, 255},
        // -vmdk wins over -f, which is left unparsed.
        {{"-quiet", "-vmdk", dir.file("m"), "-f", dir.file("m")},
         dir.file("m") + " can't be opened\n\nsuggested array: -vmdk \"" + dir.file("m") + "\"\n", 255},
        {{"-complete", "-xml", "-f", "x"}, no_separator, 255},
        {{"-complete", "-multiline", "-f", "x"}, no_separator, 255},
        {{"-f", "x", "-timeline", "csv"}, "invalid -timeline form: csv, use body or jsonl\n", 255},
        {{"-f", "x", "-timeline", "BODY"}, "invalid -timeline form: BODY, use body or jsonl\n", 255},
        {{"-f", "x", "-timeline", ""}, "invalid -timeline form: , use body or jsonl\n", 255},
        {{"-quiet", "-enumdir", ""}, "", 0},
    };
    for (const auto& r : rows) {
        const run_result got = run_ravel(r.args);
        EXPECT_EQ(got.err, r.err) << r.args[0];
        EXPECT_EQ(got.status, r.status) << r.args[0];
        // A refused table prints the preamble and one further line end on standard output.
        EXPECT_EQ(got.out, preamble_of(got.out)) << r.args[0];
        EXPECT_EQ(got.out.rfind("ravel ver: 0.93\n", 0), 0u) << r.args[0];
    }
}

TEST(CmdlineE2E, FileRoadFailuresAndOutFile) {
    temp_dir dir;
    const std::string missing = dir.file("missing.dat"), unnamed = "/" + std::string(4075, 'n');
    const std::string shadow = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\x";
    const struct {
        std::string name, opened;  // as given, and as it is opened
        std::string err;
    } rows[] = {
        {missing, missing, long_erase + "probs parsing file: " + missing},
        {"%RAVEL_T_DIR%/missing.dat", missing, long_erase + "probs parsing file: " + missing},
        {"%vss%3\\x", shadow, long_erase + "probs parsing file: " + shadow},
        {"%RAVEL_T_SELF%", "%RAVEL_T_SELF%", long_erase + "probs parsing file: %RAVEL_T_SELF%"},  // ends, does not hang
        {unnamed, unnamed, long_erase},  // a message of more than 4096 bytes is not shown at all
    };
    for (const auto& r : rows) {
        const run_result got =
            run_ravel({"-quiet", "-f", r.name}, "", {"RAVEL_T_DIR=" + dir.path(), "RAVEL_T_SELF=%RAVEL_T_SELF%"});
        EXPECT_EQ(got.out.substr(preamble_of(got.out).size()), "prob opening " + r.opened + " for read, aborting\n");
        EXPECT_EQ(got.err, r.err) << r.name.substr(0, 30);
        EXPECT_EQ(got.status, 255);
    }

    // -out: the report goes to the file, which is made anew; the locale line and the open failure stay
    // on the terminal.
    const std::string report = dir.file("report.txt");
    write_file(report, "an old report\n");
    run_result r = run_ravel({"-quiet", "-out", report, "-append", "-locale", "-f", missing}, "", {"LC_ALL=C"});
    EXPECT_EQ(r.out, "Using locale date format: C\nprob opening " + missing + " for read, aborting\n");
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(masked(read_file(report)), expected_preamble(" -quiet -out " + report + " -append -locale -f " + missing));
    r = run_ravel({"-quiet", "-out", report, "-locale", "-f", missing}, "",
                  {"LC_ALL=xx_BOGUS", "LC_TIME=xx_BOGUS", "LANG=xx_BOGUS"});
    EXPECT_EQ(r.out, "Using locale en_US date format\nprob opening " + missing + " for read, aborting\n");

    // A file with no entries: the header row is written (once), then the failure.
    const std::string plain = dir.file("plain.txt");
    write_file(plain, "no entries in here");
    const std::pair<std::vector<std::string>, std::string> forms[] = {
        {{}, header_row},
        {{"-csv_separator", "|"}, std::regex_replace(header_row, std::regex(","), "|")},
        {{"-csv_separator", "tab"}, std::regex_replace(header_row, std::regex(","), "\t")},
        {{"-xml"}, ""},
    };
    for (const auto& [options, rows_text] : forms) {
        std::vector<std::string> args = options;
        args.insert(args.end(), {"-quiet", "-out", report, "-f", plain});
        r = run_ravel(args);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, long_erase + "probs parsing file: " + plain);
        EXPECT_EQ(r.status, 255);
        const std::string written = read_file(report);
        EXPECT_EQ(written.substr(preamble_of(written).size()), rows_text);
    }

    // "-quiet" is -out's value: the report goes to a file of that name and progress stays on.
    r = run_ravel({"-out", "-quiet", "-f", "missing.dat"}, "", {}, dir.path());
    EXPECT_EQ(r.out, "prob opening missing.dat for read, aborting\n");
    EXPECT_EQ(r.err, long_erase + "probs parsing file: missing.dat" + long_erase);
    EXPECT_EQ(read_file(dir.file("-quiet")).rfind("ravel ver: 0.93\n", 0), 0u);
}

TEST(CmdlineE2E, ProfileAndDiagsTellTheElapsedTime) {
    temp_dir dir;
    auto r = run_ravel({"-quiet", "-profile"});
    ASSERT_EQ(r.err.substr(0, usage().size()), usage());
    EXPECT_TRUE(std::regex_match(r.err.substr(usage().size()), std::regex("->[01] secs\n"))) << r.err;

    // With a log and no -profile the elapsed time goes to the log only, with no line end.
    std::string log = dir.file("d.log");
    r = run_ravel({"-quiet", "-diags", log, "-pipe"}, "x.dat\n");
    EXPECT_EQ(r.status, 0);
    std::string prefix = "->" + ravel_binary() + " -quiet -diags " + log + " -pipe\n->x.dat\n->";
    std::string text = read_file(log);
    EXPECT_EQ(text.substr(0, prefix.size()), prefix);
    EXPECT_TRUE(std::regex_match(text.substr(prefix.size()), std::regex("[01] secs")));
}
