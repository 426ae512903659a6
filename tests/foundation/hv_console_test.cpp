#include "foundation/hv_console.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

#include "cmdline/hv_cmd_params.h"
#include "support/run_ravel.h"

namespace {

const std::string short_erase = "\x1b[2K\r    \r";
const std::string long_erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";

// What `run` writes through the console on standard error, then anything on standard output.
std::string captured(const std::function<void()>& run) {
    char* text[2] = {nullptr, nullptr};
    size_t size[2] = {0, 0};
    FILE* err = open_memstream(&text[0], &size[0]);
    FILE* out = open_memstream(&text[1], &size[1]);
    FILE* previous_err = redirect_console_error(err);
    FILE* previous_out = redirect_console_output(out);
    run();
    redirect_console_error(previous_err);
    redirect_console_output(previous_out);
    fclose(err), fclose(out);
    const std::string written =
        std::string(text[0], size[0]) + (size[1] ? "<stdout>" : "") + std::string(text[1], size[1]);
    free(text[0]), free(text[1]);
    return written;
}

std::string signalled;
int note_signal(std::string* arg) { signalled = *arg; return 0; }

}  // namespace

TEST(Console, PrintErrorLosesTheLastCharacterByDesign) {
    struct row { std::string message; int answer; std::string shown; };
    const row rows[] = {{"success\n", 8, "success"}, {"x", 1, ""}, {"", 0, ""},
                        {std::string(4096, 'm'), 4096, std::string(4095, 'm')},
                        {std::string(4097, 'm'), 0, ""}};   // vanishes without a word
    for (const row& r : rows) {
        int answer = -1;
        EXPECT_EQ(captured([&] { answer = print_error("%s", r.message.c_str()); }), long_erase + r.shown);
        EXPECT_EQ(answer, r.answer) << r.message.size();
    }
    const char* no_format = nullptr;   // the line is wiped all the same
    EXPECT_EQ(captured([&] { EXPECT_EQ(print_error(no_format), 0); }), long_erase);
}

TEST(Console, StatusIsOneLineOfAtMostSixtyCharacters) {
    struct row { std::string text; int answer; std::string shown; };
    const row rows[] = {{"percent done: 42", 16, "percent done: 42"},
                        {std::string(61, 'a') + "bc", 60, std::string(60, 'a')},
                        {"two\nlines\n", 10, "twolines"}};   // the count still holds the line feeds
    for (const row& r : rows) {
        int answer = -1;
        EXPECT_EQ(captured([&] { answer = print_status("%s", r.text.c_str()); }), short_erase + r.shown + "\r");
        EXPECT_EQ(answer, r.answer);
    }
}

TEST(Console, ContextEndsTheRunAsConfigured) {
    testsupport::temp_dir dir;
    const std::string log = dir.file("diags.txt");
    cmd_params options;
    options.diags_stream.reset(new std::ofstream(log, std::ios::trunc));
    options.diags_on = true, options.diags_path = log, options.signal_arg = "sig";
    diag_line(options.diags(), "a.dat");
    auto end_run = [&](signal_callback_fn callback) {   // as the file road and main end
        return captured([&] {
            clear_status_line(options.show_progress);
            cmdline_ctx ctx;
            ctx.configure(options.console(), callback);
        });
    };
    EXPECT_EQ(end_run(note_signal), long_erase + long_erase);
    // With a log and no -profile the elapsed time goes to the log only, with no line end.
    const std::string written = testsupport::read_file(log);
    EXPECT_TRUE(written == "->a.dat\n->0 secs" || written == "->a.dat\n->1 secs") << written;
    EXPECT_EQ(signalled, "sig");
    options.show_progress = false;   // -quiet: nothing wipes the line but print_error
    EXPECT_EQ(end_run(nullptr), "");
}
