#include "driver/hv_driver.h"

#include <cstdio>
#include <iostream>
#include <locale>
#include <sstream>
#include <string>

#include "cmdline/hv_args.h"
#include "cmdline/hv_cmd_params.h"
#include "cmdline/hv_host.h"
#include "cmdline/hv_options.h"
#include "cmdline/hv_preamble.h"
#include "driver/hv_list_jobs.h"
#include "driver/hv_process_input.h"
#include "indexdat/hv_scan.h"
#include "report/hv_case_db.h"
#include "report/hv_report.h"
#include "foundation/hv_date_text.h"
#include "foundation/hv_console.h"
#include "foundation/hv_string.h"
#include "input/hv_name_filter.h"
#include "input/hv_portable_dir.h"
#include "storage/hv_fileio.h"
#include "storage/hv_read_ahead.h"
#include "storage/hv_report_stream.h"
#include "storage/hv_file_stats.h"
#include "storage/hv_vmdk.h"

namespace {

constexpr int status_ok = 0;
constexpr int status_failed = -1;

int ignore_signal(std::string*) { return 0; }

// -locale: dates follow the host's locale. Both lines go to standard output even when the
// report goes to a file.
void announce_locale() {
    std::string name;
    if (find_date_locale(name)) {
        std::locale date_locale(name.c_str());
        std::cout << "Using locale date format: " << date_locale.name() << '\n';
    } else {
        std::cout << "Using locale en_US date format" << '\n';
    }
    std::cout.flush();
}

// -f, -partition and -vmdk: one input, whose failure is the run's. The message names the file of -f
// only.
int parse_one(run_context& run, const input_ref& input) {
    if (process_input(run, input)) return status_ok;
    print_error("probs parsing file: %s\n", input.road == road_kind::file ? input.path.c_str() : "");
    return status_failed;
}

// One name of a -pipe or -enumdir list: a file that passes the filters is parsed; a failed one is told
// and skipped.
void parse_listed(run_context& run, const cmd_opts& opts, const time_window& window, std::string name) {
    std::string folder, base;
    file_stats stats;
    bool could_not_open = false;
    if (!filter_passes_narrow(window, could_not_open, name, opts.name_filters, &stats)) return;
    diag_line(opts.diags(), name);
    name = expand_path_text(name, true);
    if (name.empty() || !split_path(name, folder, base)) return;
    input_ref file;
    file.path = name;
    if (!process_input(run, file)) print_error("probs parsing file: %s\n", name.c_str());
}

// -pipe and -enumdir: a failed file never changes the status. With more than one thread the files
// are parsed at once and handed on in list order.
int parse_list(run_context& run, const cmd_opts& opts, entry_writer& report, entry_writer* database) {
    const time_window window = opts.time_bounds();
    hvportdir::stdin_stream_ex input(&window);
    bool started = opts.pipe_input ? input.init_to_stdin(true)
                                   : input.init_to_enumdir(opts.enum_dir, opts.num_subdirs, opts.name_filters);
    if (!started) return status_ok;
    std::string name;
    if (run.threads <= 1) {
        // Once the report can't be written, the inputs left would be parsed for nothing.
        while (run.scan.report_ok() && input.read(name, true))
            if (!name.empty()) parse_listed(run, opts, window, name);
        return status_ok;
    }
    list_jobs jobs(report, database, opts.complete_report, run, run.threads,
                   [&](run_context& worker, const std::string& listed) { parse_listed(worker, opts, window, listed); });
    for (;;) {
        // What reading the list says goes out in its place among the files' messages.
        console_capture* previous = capture_console(&jobs.list_console());
        const bool more = jobs.going() && input.read(name, true);
        capture_console(previous);
        if (!more) break;
        if (!name.empty()) jobs.add(name);
    }
    jobs.finish();
    return status_ok;
}

// The first road that applies is the only one taken.
int take_road(run_context& run, cmd_opts& opts, arg_list& args, entry_writer& report, entry_writer* database) {
    std::string value;
    input_ref input;
    if (take_option("-partition", opts.partition, args)) {
        // Nothing sets have_admin: as things stand every -partition run ends here.
        if (!opts.have_admin) {
            print_error("re-run [-partition] option w/ admin privileges\n");
            return status_failed;
        }
        input.road = road_kind::partition;
        input.path = opts.partition;
        return parse_one(run, input);
    }
    if (peek_option("-vmdk", value, args, true)) {
        if (!parse_vmdk_list(opts, args, check_vmdk_list, nullptr, true, "-vmdk")) return status_failed;
        input.road = road_kind::vmdk;
        input.vmdk_files = opts.vmdk_files;
        return parse_one(run, input);
    }
    // The set's own message tells why it won't open; once open, the road answers true, as -vmdk's does.
    if (take_option("-ewf", opts.ewf_file, args)) {
        input.road = road_kind::ewf;
        input.path = opts.ewf_file;
        return process_input(run, input) ? status_ok : status_failed;
    }
    // The same for an image libtsk opens.
    if (take_option("-image", opts.image_file, args)) {
        input.road = road_kind::image;
        input.path = opts.image_file;
        return process_input(run, input) ? status_ok : status_failed;
    }
    if (take_option("-f", opts.current_file, args)) {
        input.path = expand_path_text(opts.current_file, true);
        return parse_one(run, input);
    }
    if (opts.pipe_input || opts.enum_dir_given) return parse_list(run, opts, report, database);
    print_usage(args[0].c_str());
    return status_ok;
}

// What the run says when its report can't be written: once, at the first write that fails (the run
// goes on, writing nothing more), or at the end when a write that fails comes only then.
struct report_failure {
    std::string path;  // empty for standard output
    bool show_progress = false;
    bool told = false;

    static void tell(void* context) {
        report_failure& failure = *static_cast<report_failure*>(context);
        if (failure.told) return;
        failure.told = true;
        clear_status_line(failure.show_progress);
        // Not print_error, which would drop the line end.
        if (!failure.path.empty())
            std::fprintf(stderr, "prob writing results file: %s\n", failure.path.c_str());
        else
            std::fprintf(stderr, "prob writing report to standard output\n");
    }
};

// The report's last buffer is written out here and not on destruction, so that a write that fails
// only then still fails the run. `file` is null when the report is standard output.
int end_report(int status, uni::fileio_output* file, uni::stdout_report_guard& screen, report_failure& failure) {
    if (file != nullptr ? file->write_out() : screen.write_out()) return status;
    report_failure::tell(&failure);
    return status_failed;
}

}  // namespace

int run_driver(int argc, const char* const* argv) {
    // Construction order matters on the way out: the report file closes (and completes) before
    // the options close the -diags log, and the console appends its elapsed time last. The failure
    // note outlives the streams that call it.
    report_failure failure;
    uni::stdout_report_guard stdout_report;
    arg_list args;
    args_from_argv(args, argc, argv);
    cmdline_ctx console;
    cmd_opts opts;
    std::ostringstream report_preamble;

    if (!start_up(args, report_preamble)) return status_ok;
    if (!parse_options(opts, args)) {
        std::cout << report_preamble.str() << '\n';
        return end_report(status_failed, nullptr, stdout_report, failure);
    }
    console.configure(opts.console(), ignore_signal);

    // The database is made before any input is read: a path that can't be written ends the run here.
    case_database database;
    case_database* run_database = nullptr;
    if (!opts.sqlite_path.empty()) {
        if (!database.create(opts.sqlite_path, {ravel_banner, opts.command_line, computer_name()})) {
            std::fprintf(stderr, "prob opening database %s for writing: %s\n", opts.sqlite_path.c_str(),
                         database.error().c_str());
            std::cout << report_preamble.str() << '\n';
            return end_report(status_failed, nullptr, stdout_report, failure);
        }
        run_database = &database;
    }

    uni::fileio results;
    uni::fileio_output* file_report = nullptr;
    if (!opts.out_path.empty()) {
        results.open(opts.out_path, true, false, true);
        file_report = results.is_open() ? results.get_output() : nullptr;
        if (!file_report) {
            std::fprintf(stderr, "prob opening results file: %s for writing\n", opts.out_path.c_str());
            return status_failed;
        }
    }
    std::ostream& out = file_report ? *file_report : std::cout;
    failure.path = opts.out_path;
    failure.show_progress = opts.show_progress;
    if (file_report)
        file_report->on_failure(&report_failure::tell, &failure);
    else
        stdout_report.on_failure(&report_failure::tell, &failure);
    if (opts.timeline == timeline_form::none) out << report_preamble.str() << '\n';  // a timeline is the whole report

    opts.use_locale_format = take_flag("-locale", args);
    if (opts.use_locale_format) announce_locale();

    // The report's form is chosen once: its writer takes every row of the run.
    const std::unique_ptr<entry_writer> report = make_report_writer(out, opts.report());
    input_scan scan(*report, opts.complete_report, run_database);
    run_context run{scan, opts.show_progress, opts.diags()};
    // -threads N, or every core the process may use.
    run.threads = opts.threads >= 1 ? static_cast<unsigned>(opts.threads) : usable_cores();
    const int status = end_report(take_road(run, opts, args, *report, run_database), file_report, stdout_report, failure);
    if (run_database == nullptr) return status;
    database.end_run(status);
    if (database.ok()) return status;
    clear_status_line(opts.show_progress);
    std::fprintf(stderr, "prob writing database %s: %s\n", opts.sqlite_path.c_str(), database.error().c_str());
    return status_failed;
}
