#include "foundation/hv_console.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "cmdline/hv_cmd_params.h"
#include "support/run_ravel.h"

namespace {

const std::string short_erase = "\x1b[2K\r    \r";
const std::string long_erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";

// Points the console at temporary files for the life of the object.
class console_capture {
public:
    console_capture() : err_(tmpfile()), out_(tmpfile()) {
        previous_err_ = redirect_console_error(err_);
        previous_out_ = redirect_console_output(out_);
    }
    ~console_capture() {
        redirect_console_error(previous_err_);
        redirect_console_output(previous_out_);
        fclose(err_);
        fclose(out_);
    }
    std::string err() { return contents(err_); }
    std::string out() { return contents(out_); }

private:
    static std::string contents(FILE* f) {
        fflush(f);
        std::string text;
        rewind(f);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
        return text;
    }
    FILE* err_;
    FILE* out_;
    FILE* previous_err_;
    FILE* previous_out_;
};

std::string* signalled = nullptr;
int note_signal(std::string* arg) {
    signalled = arg;
    return 0;
}

}  // namespace

TEST(ConsolePrintError, LosesTheLastCharacterByDesign) {
    struct row {
        std::string message;
        int answer;
        std::string shown;
    };
    const std::vector<row> rows = {
        {"success\n", 8, "success"},
        {"x", 1, ""},
        {"", 0, ""},
        {std::string(4096, 'm'), 4096, std::string(4095, 'm')},
        {std::string(4097, 'm'), 0, ""},  // vanishes without a word
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.message.size());
        console_capture capture;
        EXPECT_EQ(print_error("%s", r.message.c_str()), r.answer);
        EXPECT_EQ(capture.err(), long_erase + r.shown);
        EXPECT_EQ(capture.out(), "");
    }
    console_capture capture;
    EXPECT_EQ(print_error("probs parsing file: %s\n", "a b.dat"), 28);
    const char* no_format = nullptr;
    EXPECT_EQ(print_error(no_format), 0);
    EXPECT_EQ(capture.err(), long_erase + "probs parsing file: a b.dat" + long_erase);
}

TEST(ConsoleStatus, OneLineOfAtMostSixtyCharacters) {
    {
        console_capture capture;
        EXPECT_EQ(print_status("percent done: %d", 42), 16);
        EXPECT_EQ(capture.err(), short_erase + "percent done: 42\r");
    }
    {
        console_capture capture;
        std::string long_text(61, 'a');
        long_text += "bc";
        EXPECT_EQ(print_status("%s", long_text.c_str()), 60);
        EXPECT_EQ(capture.err(), short_erase + std::string(60, 'a') + "\r");
    }
    {
        console_capture capture;
        EXPECT_EQ(print_status("two\nlines\n"), 10);  // the count still holds the line feeds
        EXPECT_EQ(capture.err(), short_erase + "twolines\r");
    }
}

namespace {
int title_line(const char* format, ...) {
    va_list args;
    va_start(args, format);
    int kept = write_status_line(false, 60, 60, format, args, true);
    va_end(args);
    return kept;
}
}  // namespace

TEST(ConsoleStatus, TitleGoesToStandardOutput) {
    console_capture capture;
    EXPECT_EQ(title_line("ravel %d", 1), 7);
    EXPECT_FALSE(set_console_title(nullptr));
    EXPECT_EQ(capture.out(), "\x1b]0;ravel 1\x07");
    EXPECT_EQ(capture.err(), "");
}

TEST(ConsoleContext, QuietProfileDiagsAndSignal) {
    testsupport::temp_dir dir;
    {
        console_capture capture;
        { cmdline_ctx unconfigured; }
        EXPECT_EQ(capture.err(), "");
    }
    {
        console_capture capture;
        {
            cmdline_ctx ctx;
            console_settings quiet;
            quiet.show_progress = false;
            ctx.configure(quiet, note_signal);
        }
        EXPECT_EQ(capture.err(), "");
    }
    {
        console_capture capture;
        {
            cmdline_ctx ctx;
            console_settings profile;
            profile.profile = true;
            ctx.configure(profile, nullptr);
            EXPECT_NE(ctx.start_stamp, 0u);
        }
        std::string err = capture.err();
        EXPECT_TRUE(err == long_erase + "->0 secs\n" || err == long_erase + "->1 secs\n") << err;
    }
    {
        // With a diagnostics log and no -profile, the time goes to the log only, with no line end.
        std::string log = dir.file("diags.txt");
        ASSERT_TRUE(testsupport::write_file(log, "->cmd\n"));
        console_capture capture;
        signalled = nullptr;
        {
            cmdline_ctx ctx;
            console_settings diags;
            diags.show_progress = false;
            diags.diags_good = true;
            diags.diags_path = log;
            diags.signal_arg = "sig";
            ctx.configure(diags, note_signal);
        }
        EXPECT_EQ(capture.err(), "");
        std::string written = testsupport::read_file(log);
        EXPECT_TRUE(written == "->cmd\n->0 secs" || written == "->cmd\n->1 secs") << written;
        ASSERT_NE(signalled, nullptr);
    }
}

TEST(ConsoleOptions, ClearLineAndDiagnosticsFollowTheRecord) {
    testsupport::temp_dir dir;
    cmd_params options;
    {
        console_capture capture;
        clear_status_line(options);
        options.show_progress = false;
        clear_status_line(options);
        EXPECT_EQ(capture.err(), long_erase);
    }

    diag_line(options, "ignored");  // no log open
    std::string log = dir.file("diags.txt");
    options.diags_stream.reset(new std::ofstream(log, std::ios::trunc));
    options.diags_on = true;
    options.diags_path = log;
    diag_line(options, "a.dat");
    EXPECT_EQ(testsupport::read_file(log), "->a.dat\n");

    cmdline_ctx ctx;
    ctx.configure(options, note_signal);
    EXPECT_FALSE(ctx.clear_line_at_end);
    EXPECT_EQ(ctx.elapsed_file, log);
    EXPECT_FALSE(ctx.report_elapsed);
    EXPECT_NE(ctx.start_stamp, 0u);
    EXPECT_EQ(ctx.signal_callback, nullptr);  // no -signal text
}
