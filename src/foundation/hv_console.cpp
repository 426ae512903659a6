#include "foundation/hv_console.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <sstream>

#include "foundation/hv_time.h"

const char short_erase_text[] = "\x1b[2K\r    \r";
const char long_erase_text[] = "\x1b[2K\r                           \r";
static_assert(sizeof short_erase_text - 1 == 10, "short erase is 10 bytes");
static_assert(sizeof long_erase_text - 1 == 33, "long erase is 33 bytes");

namespace {

FILE* error_target = nullptr;   // null: standard error

FILE* console_error() { return error_target != nullptr ? error_target : stderr; }
FILE* console_output() { return stdout; }

// A worker's console: what it says goes to the run's thread, which says it in its turn.
thread_local console_capture* capture = nullptr;

// `text` up to its first NUL, as fputs writes it, to standard error or the capture.
void put_error(const char* text) {
    if (capture != nullptr) {
        capture->said(console_capture::error, text, std::strlen(text));
        return;
    }
    FILE* err = console_error();
    fputs(text, err);
    fflush(err);
}

void write_long_erase() { put_error(long_erase_text); }

constexpr size_t status_buffer_size = 256;
constexpr int status_line_chars = 60;  // what print_status keeps of its text
constexpr int longest_message = 4096;

}  // namespace

FILE* redirect_console_error(FILE* target) {
    FILE* previous = console_error();
    error_target = target;
    return previous;
}

// ---- context --------------------------------------------------------------------------------

cmdline_ctx::cmdline_ctx() = default;

void cmdline_ctx::configure(const console_settings& settings, signal_callback_fn callback) {
    if (settings.show_progress) clear_line_at_end = true;
    if (settings.diags_good) elapsed_file = settings.diags_path;
    append_file = settings.append_file;
    report_elapsed = settings.profile;
    // The elapsed time counts from here, the end of option parsing.
    if (settings.profile || !elapsed_file.empty()) start_stamp = hv::ntp_now();
    if (callback != nullptr && !settings.signal_arg.empty()) {
        signal_callback = callback;
        signal_arg = settings.signal_arg;
    }
}

cmdline_ctx::~cmdline_ctx() {
    if (clear_line_at_end) write_long_erase();
    if (start_stamp != 0) {
        uint64_t now = hv::ntp_now();
        double seconds = hv::ntp_difference(&start_stamp, &now);
        std::ostringstream text;
        text << "->" << seconds << " secs";
        if (report_elapsed) fprintf(console_error(), "%s\n", text.str().c_str());
        // The diagnostics log is already closed by now; a failing append is ignored.
        if (!elapsed_file.empty() && append_file != nullptr) append_file(elapsed_file, text);
    }
    if (signal_callback != nullptr && !signal_arg.empty()) signal_callback(&signal_arg);
}

// ---- status line and messages ---------------------------------------------------------------

int print_status(const char* format, ...) {
    va_list args;
    va_start(args, format);
    int kept = write_status_line(true, status_line_chars, status_line_chars, format, args, false);
    va_end(args);
    return kept;
}

namespace {

// The bytes of a status line: without `title`, the short erase, the text cut to `max_chars`, and a CR.
// Answers the number of characters kept, or -1 when the text could not be formatted.
int status_line_bytes(std::string& line, int max_chars, const char* format, va_list args, bool title) {
    if (format == nullptr) return -1;
    if (max_chars < 0) max_chars = 0;
    size_t size = static_cast<size_t>(max_chars) > status_buffer_size ? static_cast<size_t>(max_chars) + 1
                                                                      : status_buffer_size;
    std::vector<char> text(size, 0);
    va_list copy;
    va_copy(copy, args);
    int formatted = vsnprintf(text.data(), size - 1, format, copy);
    va_end(copy);
    if (formatted < 0) return -1;
    int kept = std::min(formatted, max_chars);
    text[std::min(static_cast<size_t>(kept), size - 1)] = 0;

    const size_t start = line.size();
    if (!title) line += short_erase_text;
    line += text.data();
    if (!title) line += '\r';
    // A status line never moves the cursor down.
    line.erase(std::remove(line.begin() + static_cast<std::ptrdiff_t>(start), line.end(), '\n'), line.end());
    return kept;
}

}  // namespace

int write_status_line(bool to_stderr, int max_chars, int, const char* format, va_list args, bool title) {
    std::string line;
    int kept = status_line_bytes(line, max_chars, format, args, title);
    if (kept < 0) return 0;
    if (to_stderr) {
        write_console_error(line);
    } else if (title) {
        set_console_title(line.c_str());
    } else {
        FILE* out = console_output();
        fprintf(out, "%s", line.c_str());
        fflush(out);
    }
    return kept;
}

void append_status_line(std::string& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    status_line_bytes(out, status_line_chars, format, args, false);
    va_end(args);
}

void write_console_error(const std::string& bytes) { put_error(bytes.c_str()); }

void write_console_report(const std::string& text) {
    if (capture != nullptr)
        capture->said(console_capture::report, text.data(), text.size());
    else
        std::cout << text;
}

console_capture* capture_console(console_capture* target) {
    console_capture* previous = capture;
    capture = target;
    return previous;
}

void clear_status_line(bool show_progress) {
    if (show_progress) write_long_erase();
}

int print_error(const char* format, ...) {
    write_long_erase();
    if (format == nullptr) return 0;
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    int length = vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (length < 0 || length > longest_message) {
        va_end(args);
        return 0;  // such a message vanishes without a word
    }
    std::vector<char> text(static_cast<size_t>(length) + 1, 0);
    // The size given is the length, not the buffer's: the last character (in practice the final
    // line feed) is dropped, and the run driver's messages rely on that form.
    int result = vsnprintf(text.data(), static_cast<size_t>(length), format, args);
    va_end(args);
    if (result < 0) return 0;
    put_error(text.data());
    return length;
}

bool set_console_title(const char* text) {
    if (text == nullptr) return false;
    FILE* out = console_output();
    fprintf(out, "\x1b]0;%s\x07", text);
    fflush(out);
    return true;
}

void diag_line(std::ostream* log, const std::string& text) {
    if (log == nullptr) return;
    if (capture != nullptr) {
        const std::string line = "->" + text + "\n";
        capture->said(console_capture::diags, line.data(), line.size());
        return;
    }
    *log << "->" << text << '\n';
    log->flush();
}
