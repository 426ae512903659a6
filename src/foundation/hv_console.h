// The console: a self-overwriting status line, an error printer that wipes it first, and the
// context that ends the run (clears the line, tells the elapsed time, calls the signal callback).
// Everything goes to standard error, escape sequences included, terminal or not.
#pragma once
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

// ESC "[2K" CR, blanks, CR: wipes the status line and leaves the cursor at column 0.
extern const char short_erase_text[];  // 4 blanks, 10 bytes
extern const char long_erase_text[];   // 27 blanks, 33 bytes

// Where the console's messages go: standard error unless a test points them elsewhere. Answers the
// previous target; null restores the default. What uses it: tests. Output always goes to standard output.
FILE* redirect_console_error(FILE* target);

// The handler of -signal; gets the address of the context's signal_arg.
using signal_callback_fn = int (*)(std::string* arg);
// Appends `text` to the existing file at `path`; the file layer's, so that its opens stay in one place.
using append_file_fn = bool (*)(const std::string& path, std::ostringstream& text);

// What the context takes from the options (the command line gives it: cmd_params::console()).
struct console_settings {
    bool show_progress = true;
    bool diags_good = false;  // diags_on, and the log stream exists and is good
    std::string diags_path;
    bool profile = false;
    std::string signal_arg;
    append_file_fn append_file = nullptr;  // how the elapsed time reaches diags_path

    void clear() { *this = console_settings(); }
    bool valid() const { return true; }
};

// Lives for the whole of main; its destructor ends the run on every way out.
class cmdline_ctx {
public:
    cmdline_ctx();
    virtual ~cmdline_ctx();
    cmdline_ctx(const cmdline_ctx&) = delete;
    cmdline_ctx& operator=(const cmdline_ctx&) = delete;

    // Second step of construction, right after the option table.
    void configure(const console_settings& settings, signal_callback_fn callback);

    int32_t reserved = 0;
    bool clear_line_at_end = false;
    uint64_t start_stamp = 0;  // NTP stamp; 0: no elapsed time
    bool report_elapsed = false;
    std::string elapsed_file;  // the elapsed text is appended here when not empty
    std::string signal_arg;
    signal_callback_fn signal_callback = nullptr;
    append_file_fn append_file = nullptr;
};

#if defined(__GNUC__)
#define HV_PRINTF_LIKE(f, a) __attribute__((format(printf, f, a)))
#else
#define HV_PRINTF_LIKE(f, a)
#endif

// A status line of at most 60 characters on standard error: short erase, text, CR.
int print_status(const char* format, ...) HV_PRINTF_LIKE(1, 2);

// The worker behind print_status: answers the number of characters kept, 0 on a format failure.
// Line feeds never reach the screen. `reserved_chars` is not read.
int write_status_line(bool to_stderr, int max_chars, int reserved_chars, const char* format, va_list args,
                      bool title);

// The bytes print_status would write, appended to `out`, and their writing: a scan that passes over a
// long stretch unread gives the stretch's status lines in one write.
void append_status_line(std::string& out, const char* format, ...) HV_PRINTF_LIKE(2, 3);
void write_console_error(const std::string& bytes);

// The long erase, when show_progress is set.
void clear_status_line(bool show_progress);

// Long erase, then the message WITHOUT its last character ("success\n" shows as "success").
// Messages of 4097 characters or more vanish. Answers the formatted length, or 0.
int print_error(const char* format, ...) HV_PRINTF_LIKE(1, 2);

// `text` on the report's own stream (std::cout), as a line that isn't a row: a file that won't open.
void write_console_report(const std::string& text);

// What a worker thread says, kept for the run's thread to say in its turn: the console's bytes
// (standard error), the report stream's lines, and the -diags log's lines.
class console_capture {
public:
    enum target : uint8_t { error, report, diags };
    virtual ~console_capture() = default;
    virtual void said(target where, const char* text, size_t size) = 0;
};
// From now on this thread's console messages, report lines and log lines go to `target` (null: to
// their streams again); answers the previous target.
console_capture* capture_console(console_capture* target);

// ESC "]0;" text BEL on standard output; false for null.
bool set_console_title(const char* text);

// "->" text and a line end to the -diags log; null when none is open.
void diag_line(std::ostream* log, const std::string& text);
