#include "cmdline/hv_preamble.h"

#include <unistd.h>

#include <cstdio>
#include <vector>

#include "cmdline/hv_host.h"
#include "foundation/hv_date_text.h"
#include "foundation/hv_string.h"
#include "foundation/hv_time.h"

namespace {

// The run line keeps its own date default; the rows default to "yyyy-mm-dd".
const char run_line_date_format[] = "mm/dd/yyyy";
const char run_line_time_format[] = "hh:mm:ss";

struct usage_line {
    const char* option;
    const char* effect;
};

const usage_line more_options[] = {
    {"-ewf <file.E01>", "E01 image scan"},
    {"-image <image>", "evidence image: its files and its media"},
    {"-out <file>", "write the report to a file (also -outfile)"},
    {"-complete", "lossless report: whole entries, CSV that parses"},
    {"-timeline <body|jsonl>", "the entries as a timeline, in place of the report"},
    {"-sqlite <file>", "also write the run into a SQLite database"},
    {"-threads <n>", "threads that read (default: every core)"},
    {"-csv, -csvgen, -csvl2t", "use a comma for separator (the default)"},
    {"-bodyfile", "use a pipe char for separator"},
    {"-xml", "no header row and no separator"},
    {"-multiline", "no separator"},
    {"-enable_quoted_csv_fields", "trim blanks off the separator"},
    {"-no_whitespace", "remove every blank from the separator"},
    {"-locale", "dates and times in the host's locale"},
    {"-filter_sig \"<hex>|<n>\"", "only files holding these bytes at offset n"},
    {"-cmd_start_time <date>", "with -filter, skip files older than this"},
    {"-cmd_stop_time <date>", "with -filter, a stop bound"},
    {"-quiet", "no progress lines"},
    {"-profile", "print the elapsed time at the end"},
    {"-diags <file>", "write a diagnostics log"},
    {"-h, -help, --help, /?", "show this text"},
};

}  // namespace

std::string computer_name() {
    std::vector<char> name(4096, '\0');
    if (gethostname(name.data(), name.size() - 1) != 0) return "<unk>";
    return name.data();
}

void print_usage(const char* program_path) {
    std::string folder, name;
    if (!program_path || !split_path(program_path, folder, name)) name = program_path ? program_path : "";
    const char* p = name.c_str();
    std::fprintf(stderr, "-----------------------------------------------------------------------------\n\n");
    std::fprintf(stderr, "%s\n\n", ravel_banner);
    std::fprintf(stderr, "Usage:\n");
    std::fprintf(stderr, "\n");
    std::fprintf(stderr, "  %s -f <file>\n", p);
    std::fprintf(stderr, "  %s -partition <drive letter>          = Partition scan\n", p);
    std::fprintf(stderr, "  %s -vmdk \"<file1> | <file2> | ...\"    = VMWare disk scan\n", p);
    std::fprintf(stderr, "    find <starting path> -name *.dat -type f | <path of %s> -pipe\n", p);
    std::fprintf(stderr, "  %s -enumdir <folder> -num_subdirs <#> [options]\n", p);
    std::fprintf(stderr, "\n");
    std::fprintf(stderr, " Basic options\n");
    std::fprintf(stderr, "  -pipe                     = pipe files into app for processing\n");
    std::fprintf(stderr, "  -dateformat mm/dd/yyyy    = \"yyyy-mm-dd\" is the default\n");
    std::fprintf(stderr, "  -timeformat hh:mm:ss      = \"hh:mm:ss.xxx\" is the default\n");
    std::fprintf(stderr, "  -csv_separator \"|\"        = use a pipe char for separator\n");
    std::fprintf(stderr, "  -filter <*partial*|*.ext> = filters stdin data from -pipe option\n");
    std::fprintf(stderr, "\n");
    // The original text above stays as scripts know it; every option that acts beyond it comes here.
    std::fprintf(stderr, " More options\n");
    for (const usage_line& line : more_options) std::fprintf(stderr, "  %-25s = %s\n", line.option, line.effect);
    std::fprintf(stderr, "\n");
}

bool start_up(arg_list& args, std::ostringstream& report_preamble) {
    bool help = false;
    for (const char* word : {"-h", "-help", "/?", "--help"}) help = take_flag(word, args) || help;
    if (help || args.size() <= 1) {
        print_usage(args.empty() ? "" : args[0].c_str());
        return false;
    }

    std::string date_format = run_line_date_format;
    peek_option("-dateformat", date_format, args);  // stays for the option table

    hv::time now;
    now.set_now();
    std::string date_text, time_text;
    format_date_time_template(date_text, time_text, now, date_format, run_line_time_format);

    os_version_info os;
    fill_os_version_info(os, args[0]);
    std::ostringstream os_text;
    write_os_text(os, os_text, ";", " ", false, false);

    std::string command;
    join_command_line(command, args, '\'');

    report_preamble << ravel_banner << '\n';
    report_preamble << "Run time: " << date_text << ' ' << time_text << " UTC; Computer: " << computer_name()
                    << "; OS: " << os_text.str() << '\n';
    report_preamble << "\"Command line: " << (has_flag("-pipe", args) ? "<filelist> ... | " : "") << command << "\"\n";
    return true;
}
