// The command line seen from outside: usage, preamble, the option table's effects on the report,
// where each text goes, and the exit status of every failure of the run.
#include <gtest/gtest.h>

#include <regex>

#include "support/run_ravel.h"

using testsupport::run_ravel;

namespace {

const std::string erase = "\x1b[2K\r                           \r";  // the console's long erase

std::string usage() {
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

const std::string header_row =
    "last mod date,last mod time,access date,access time,expires date,expires time,last sync date,"
    "last sync time,type,url,user,filename,file size,directory,count,HTTP header,index.dat filename\n";

// Splits the preamble (three lines and the empty line) from what follows; "" when it isn't there.
std::string preamble_of(const std::string& out) {
    size_t end = out.find("\n\n");
    return end == std::string::npos ? "" : out.substr(0, end + 2);
}

// The run line's date and time change from run to run; the rest is fixed.
std::string expected_preamble(const std::string& args_text) {
    return "ravel ver: 0.93\nRun time: DATE TIME UTC; Computer: HOST; OS: OS\n\"Command line: " +
           testsupport::ravel_binary() + args_text + "\"\n\n";
}

std::string masked(const std::string& preamble) {
    static const std::regex run_line(
        "Run time: \\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d UTC; Computer: [^;\n]+; OS: [^\n]*;(32|64)\n");
    return std::regex_replace(preamble, run_line, "Run time: DATE TIME UTC; Computer: HOST; OS: OS\n");
}

}  // namespace

TEST(CmdlineE2E, NoArgumentAndEveryHelpWordShowTheUsage) {
    std::vector<std::vector<std::string>> lines = {{}, {"-h"}, {"-help"}, {"/?"}, {"--help"},
                                                   {"-f", "x", "-sqlite", "y", "-H"}};
    for (const auto& args : lines) {
        auto r = run_ravel(args);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, usage());
        EXPECT_EQ(r.status, 0);
    }
}

TEST(CmdlineE2E, NoRoadGivesPreambleThenUsage) {
    auto r = run_ravel({"-quiet", "-unknown_word", "two words"});
    EXPECT_EQ(masked(r.out), expected_preamble(" -quiet -unknown_word 'two words'"));
    EXPECT_EQ(r.err, usage());  // -quiet: no erase at the end
    EXPECT_EQ(r.status, 0);

    // -dateformat shapes the run line's date; a bad one is told, and the run goes on.
    r = run_ravel({"-dateformat", "yyyy-mm-dd", "-pipe", "-enumdir"}, "");
    EXPECT_TRUE(std::regex_search(r.out, std::regex("\nRun time: \\d{4}-\\d\\d-\\d\\d ")));
    EXPECT_NE(r.out.find("\n\"Command line: <filelist> ... | "), std::string::npos);
    r = run_ravel({"-quiet", "-timeformat", "hhmmss"});
    EXPECT_EQ(r.err, "invalid hhmmss, using default format\n" + usage());
    EXPECT_EQ(r.status, 0);

    // A time whose numbers no field can hold is a bad time like any other.
    for (const char* value : {"2012-05-30 1e15:00", "2012-05-30 10:15:1e30"}) {
        r = run_ravel({"-quiet", "-cmd_start_time", value});
        EXPECT_EQ(r.err, "invalid start time, ignoring\n" + usage()) << value;
        EXPECT_EQ(r.status, 0) << value;
    }
}

TEST(CmdlineE2E, FailureTableStatuses) {
    testsupport::temp_dir dir;
    struct row {
        std::vector<std::string> args;
        std::string err;
        int status;
    } rows[] = {
        {{"-sqlite", "db"}, "This option is not offered in this build\n", 255},
        {{"-alias", "a|b|c"}, "imbalanced alias to true pathfiles, aborting\n", 255},
        {{"-out", dir.file("no/r.txt")}, "prob opening file " + dir.file("no/r.txt") + " for output, aborting\n", 255},
        {{"-cmd_start_time", "20120530", "-f", "x"}, "", 255},
        {{"-partition", "/dev/sda"}, erase + "re-run [-partition] option w/ admin privileges" + erase, 255},
        {{"-quiet", "-enumdir", ""}, "", 0},
    };
    for (const auto& r : rows) {
        auto got = run_ravel(r.args);
        EXPECT_EQ(got.err, r.err) << r.args[0];
        EXPECT_EQ(got.status, r.status) << r.args[0];
        // A refused table prints the preamble and one further line end on standard output.
        EXPECT_EQ(got.out, preamble_of(got.out)) << r.args[0];
        EXPECT_NE(got.out.find("ravel ver: 0.93\n"), std::string::npos);
    }
}

TEST(CmdlineE2E, FileRoadFailuresAndOutFile) {
    testsupport::temp_dir dir;
    std::string missing = dir.file("missing.dat");
    auto r = run_ravel({"-quiet", "-f", missing});
    EXPECT_EQ(r.out.substr(preamble_of(r.out).size()), "prob opening " + missing + " for read, aborting\n");
    EXPECT_EQ(r.err, erase + "probs parsing file: " + missing);
    EXPECT_EQ(r.status, 255);

    // -out: the report goes to the file; the locale line and the open failure stay on the terminal.
    std::string report = dir.file("report.txt");
    r = run_ravel({"-quiet", "-out", report, "-locale", "-f", missing}, "", {"LC_ALL=C"});
    EXPECT_EQ(r.out, "Using locale date format: C\nprob opening " + missing + " for read, aborting\n");
    EXPECT_EQ(r.status, 255);
    std::string written = testsupport::read_file(report);
    EXPECT_EQ(masked(written), expected_preamble(" -quiet -out " + report + " -locale -f " + missing));
    r = run_ravel({"-quiet", "-out", report, "-locale", "-f", missing}, "",
                  {"LC_ALL=xx_BOGUS", "LC_TIME=xx_BOGUS", "LANG=xx_BOGUS"});
    EXPECT_EQ(r.out, "Using locale en_US date format\nprob opening " + missing + " for read, aborting\n");

    // -vmdk wins over -f, which is left unparsed; its refusal ends the run with -1.
    r = run_ravel({"-quiet", "-vmdk", missing, "-f", missing});
    EXPECT_EQ(r.out, preamble_of(r.out));
    EXPECT_EQ(r.status, 255);

    // A file with no entries: the header row is written (once), then the failure.
    std::string plain = dir.file("plain.txt");
    testsupport::write_file(plain, "no entries in here");
    struct row {
        std::vector<std::string> options;
        std::string after_preamble;
    } rows[] = {
        {{}, header_row},
        {{"-csv_separator", "|"}, std::regex_replace(header_row, std::regex(","), "|")},
        {{"-csv_separator", "tab"}, std::regex_replace(header_row, std::regex(","), "\t")},
        {{"-xml"}, ""},
    };
    for (const auto& c : rows) {
        std::vector<std::string> args = c.options;
        args.insert(args.end(), {"-quiet", "-out", report, "-f", plain});
        r = run_ravel(args);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, erase + "probs parsing file: " + plain);
        EXPECT_EQ(r.status, 255);
        written = testsupport::read_file(report);
        EXPECT_EQ(written.substr(preamble_of(written).size()), c.after_preamble);
    }
}

TEST(CmdlineE2E, ValuesThatLookLikeOptionsAndLeftoverWords) {
    testsupport::temp_dir dir;
    // "-quiet" is -out's value: the report goes to a file of that name and progress stays on.
    auto r = run_ravel({"-out", "-quiet", "-f", "missing.dat"}, "", {}, dir.path());
    EXPECT_EQ(r.out, "prob opening missing.dat for read, aborting\n");
    EXPECT_EQ(r.err, erase + "probs parsing file: missing.dat" + erase);
    EXPECT_NE(testsupport::read_file(dir.file("-quiet")).find("ravel ver: 0.93\n"), std::string::npos);

    // -f last on the line counts as absent: no road, the usage.
    r = run_ravel({"-quiet", "-f"});
    EXPECT_EQ(r.err, usage());
    EXPECT_EQ(r.status, 0);
}

TEST(CmdlineE2E, ListRoadsGoOnPastFailedFiles) {
    testsupport::temp_dir dir;
    auto r = run_ravel({"-quiet", "-pipe"}, "\n" + dir.file("a.dat") + "\n\n" + dir.file("b.dat") + "\n");
    EXPECT_EQ(r.out.substr(preamble_of(r.out).size()),
              "prob opening " + dir.file("a.dat") + " for read, aborting\nprob opening " + dir.file("b.dat") +
                  " for read, aborting\n");
    EXPECT_EQ(r.err, erase + "probs parsing file: " + dir.file("a.dat") + erase + "probs parsing file: " +
                         dir.file("b.dat"));
    EXPECT_EQ(r.status, 0);
}

TEST(CmdlineE2E, ProfileAndDiagsTellTheElapsedTime) {
    testsupport::temp_dir dir;
    auto r = run_ravel({"-quiet", "-profile"});
    ASSERT_EQ(r.err.substr(0, usage().size()), usage());
    EXPECT_TRUE(std::regex_match(r.err.substr(usage().size()), std::regex("->[01] secs\n"))) << r.err;

    std::string log = dir.file("d.log");
    r = run_ravel({"-quiet", "-diags", log, "-pipe"}, "x.dat\n");
    EXPECT_EQ(r.status, 0);
    std::string prefix = "->" + testsupport::ravel_binary() + " -quiet -diags " + log + " -pipe\n->x.dat\n->";
    std::string text = testsupport::read_file(log);
    EXPECT_EQ(text.substr(0, prefix.size()), prefix);
    EXPECT_TRUE(std::regex_match(text.substr(prefix.size()), std::regex("[01] secs")));
}
