// The portable file layer: every open of a file or device, the buffered report stream, the
// standard-input line reader, and the UTF-8 <-> wide conversions that every path passes through.
// Nothing here prints; each operation answers 0/1 (bool) or an empty value and the caller words it.
#pragma once
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <new>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

struct file_stats;  // input/hv_name_filter.h

static_assert(sizeof(wchar_t) == 4, "wide strings hold one code point per wchar_t");

namespace uni {

class fileio;
class fileio_output;

// Callback of process_chunks. `offset` is the file position of chunk[0]; consecutive chunks
// share `overlap` bytes. The answer is ignored.
using chunk_callback = uint32_t (*)(fileio* file, void* context, uint8_t* chunk, uint32_t length,
                                    uint32_t overlap, uint64_t offset);

// A file on a plain descriptor. Owns the descriptor and the report stream made by get_output.
class fileio {
public:
    fileio();
    // Opens at once with truncate set; after a failure every field is back at its closed value.
    // The read form used everywhere is (path, 0, 1, 0).
    fileio(const std::string& path, bool write, bool retain_flag, int ignored);
    fileio(const std::wstring& path, bool write, bool retain_flag, int ignored);
    virtual ~fileio();
    fileio(const fileio&) = delete;
    fileio& operator=(const fileio&) = delete;

    // Reading: O_RDONLY. Writing: O_RDWR, plus O_CREAT | O_TRUNC with `truncate`.
    // Trailing '/' and '\' are taken off the path; an open file is closed first.
    bool open(const std::string& path, bool write, bool retain_flag, bool truncate);
    bool open(const std::wstring& path, bool write, bool retain_flag, bool truncate);
    bool is_open() const { return fd != -1 && opened; }

    // End of file by lseek, or the device size when that says 0; 0 when closed or unknown.
    uint64_t get_size();

    // Positioned read with in/out length, cut to the size taken at open. One read(2), not
    // repeated: a short read shows as a shorter length. On a read(2) error the length is 0xFFFFFFFF.
    bool read(void* buffer, uint32_t& length, uint64_t offset);
    // The same for a 64-bit length: over 0xFFFFFFFF fails untouched; any failure sets it to 0.
    bool read(void* buffer, uint64_t& length, uint64_t offset);
    // Reads up to `count` bytes at `offset` into `out` (resized); a count of 0 leaves it alone.
    bool read_into(std::vector<uint8_t>& out, uint64_t count, uint64_t offset);

    // Feeds the file to `callback` in chunks of `chunk_size` that overlap by `overlap` bytes.
    bool process_chunks(chunk_callback callback, void* context, uint32_t chunk_size, uint32_t overlap,
                        uint64_t start);

    // Writes at the end of the file; a short write counts as success.
    bool append(const char* data, uint32_t count);
    // One write(2) at the end of the file: the bytes it took, which may be fewer than `count`, or -1.
    long append_some(const char* data, uint32_t count);
    bool append_text(std::ostringstream& text);

    // The 256 KiB report stream over this file, owned by it; null when not open.
    fileio_output* get_output();

    // Writes out the report stream, closes the descriptor, returns to the closed values.
    void close();

    int32_t fd = -1;
    uint64_t size = 0;  // taken at open, refreshed after each append
    bool writable = false;
    bool opened = false;
    bool retain_flag = false;  // stored only
    std::wstring path;         // as given, without trailing slashes
    fileio_output* output = nullptr;
};

// A write-only stream buffer of a fixed size. The put area stops one byte short of the buffer's
// end, so overflow always has room for its pending character.
template <class C, class T = std::char_traits<C>>
class streambuf_generic_output : public std::basic_streambuf<C, T> {
public:
    using int_type = typename T::int_type;

    explicit streambuf_generic_output(unsigned long size) : buffer_size(size) {
        try {
            buffer.resize(buffer_size);
        } catch (const std::bad_alloc&) {
            buffer_size = 0;
            return;
        }
        ok = buffer_size > 0;
        reset_put_area();
    }
    ~streambuf_generic_output() override = default;

    // Writes out what is held: 0, or -1 once any write has failed.
    virtual int flush() {
        if (!ok) return 0;
        return T::eq_int_type(overflow(T::eof()), T::eof()) ? -1 : 0;
    }

protected:
    int sync() override { return flush(); }

    int_type overflow(int_type c) override {
        if (!ok || write_failed) return T::eof();
        size_t n = static_cast<size_t>(this->pptr() - this->pbase());
        if (!T::eq_int_type(c, T::eof())) buffer[n++] = T::to_char_type(c);  // the spare byte
        size_t written = 0;
        while (written < n) {
            long got = generic_write(buffer.data() + written, static_cast<unsigned int>(n - written));
            if (got <= 0) {
                // Nothing is written after a failure, so what did reach the target has no gap.
                write_failed = true;
                return T::eof();  // the stream turns bad
            }
            written += static_cast<size_t>(got);
        }
        reset_put_area();
        return T::eq_int_type(c, T::eof()) ? T::to_int_type(C()) : c;
    }

    // Answers the count written, or -1.
    virtual long generic_write(const C* data, unsigned int count) = 0;

    void reset_put_area() { this->setp(buffer.data(), buffer.data() + buffer_size - 1); }

    unsigned long buffer_size;
    std::vector<C> buffer;
    bool ok = false;
    bool write_failed = false;
};

// The report's stream buffer: appends to the file when full or when destroyed, never on sync.
class fileio_ostream : public streambuf_generic_output<char> {
public:
    fileio_ostream(fileio* file, unsigned long size);
    ~fileio_ostream() override;

    fileio* file;  // not owned
    bool ready = false;

protected:
    // Rows end with std::endl; they must not reach the file one by one.
    int sync() override { return 0; }
    long generic_write(const char* data, unsigned int count) override;
};

// The report stream. Its bytes are complete on disk only once it is destroyed or written out.
class fileio_output : public std::ostream {
public:
    fileio_output(fileio* file, unsigned long size);
    ~fileio_output() override;
    void close();
    // Writes out what the buffer holds (sync doesn't); false once any byte of the report was lost.
    bool write_out();

    bool is_open = false;

private:
    fileio_ostream buf;
};

// Standard output buffered as the report stream is: written when full or when the guard ends, never
// on sync. While a guard lives, std::cout writes through it, so whatever the run prints on standard
// output keeps its order and rows don't each cost a write(2).
class stdout_report_guard {
public:
    stdout_report_guard();
    ~stdout_report_guard();
    stdout_report_guard(const stdout_report_guard&) = delete;
    stdout_report_guard& operator=(const stdout_report_guard&) = delete;
    // As fileio_output::write_out, for standard output.
    bool write_out();

private:
    class descriptor_buffer : public streambuf_generic_output<char> {
    public:
        explicit descriptor_buffer(unsigned long size) : streambuf_generic_output<char>(size) {}
        bool ready() const { return ok; }

    protected:
        int sync() override { return 0; }
        long generic_write(const char* data, unsigned int count) override;
    };
    descriptor_buffer buf;
    std::streambuf* saved = nullptr;  // null when the buffer could not be had: cout stays as it was
};

// Lines of standard input, at most 4095 bytes per read; a longer line arrives in pieces.
class stdin_stream {
public:
    explicit stdin_stream(bool flag = false);
    virtual ~stdin_stream();
    stdin_stream(const stdin_stream&) = delete;
    stdin_stream& operator=(const stdin_stream&) = delete;

    // Takes `source` (not owned) as the line source and gets the line buffer; the open flag.
    bool open(FILE* source = stdin);
    bool is_open() const { return ok; }

    // One line into `out` (cleared first); false when not open or at end of input.
    // `strip` removes every trailing CR and LF.
    virtual bool read(std::string& out, bool strip);
    // The same, decoded from UTF-8; a bad byte doesn't fail the read, `out` keeps what came before.
    virtual bool read(std::wstring& out, bool strip);

protected:
    std::vector<char> line;
    FILE* stream = nullptr;
    bool ok = false;
    bool flag = false;  // stored only
    int32_t line_size = 4096;
};

// Kept for its start-up instance only; nothing reads it.
class utf8_locale {
public:
    virtual ~utf8_locale() = default;
    int32_t first = 0;
    int32_t second = 0;
};

// Size behind a descriptor: the end of a file, a device's own size, 0 for a folder or anything
// that won't tell. The descriptor's position is left where it was. `known` spares a second status call.
uint64_t descriptor_size(int fd, const struct stat* known = nullptr);

// Every open of a file or device. O_NONBLOCK is always added; named pipes and sockets are
// refused (closed again). Answers the descriptor or -1; `status`, when given, gets the file's status.
int open_checked(const std::string& path, int flags, int mode, struct stat* status = nullptr);
int open_checked(const std::wstring& path, int flags, int mode);

// The first min(size, limit) bytes of a file. Fails for an empty path, a limit of 0, a file that
// won't open, or a size whose low 32 bits are 0.
bool read_whole_file(std::vector<uint8_t>& out, const std::string& path, uint32_t limit);

// The host's status record plus the birth time it keeps apart (0 where none is given).
struct stat_record {
    struct stat st;
    int64_t birth_seconds;
};
// Status of a path, following links. The record is zeroed first.
bool stat_file(stat_record& record, const std::wstring& path);
// Fills `out` (cleared first) from stat_file; times in seconds since 1970.
bool get_file_stats(file_stats& out, const std::wstring& path);
// The inode number, 0 on failure.
uint64_t file_inode_of(const std::wstring& path);

// UTF-8 to one code point per wchar_t. Overlong forms and surrogates pass as they come.
// False for empty input or a bad sequence; `out` keeps what was decoded before it.
bool utf8_to_wide(std::wstring& out, const std::string& in);
// Empty for empty or invalid input.
std::wstring wide_of(const std::string& in);
// Stops silently at the first code point of 0x110000 or above. False only for empty input.
bool wide_to_utf8(std::string& out, const std::wstring& in);
std::string narrow_of(const std::wstring& in);

}  // namespace uni

// The free functions are called unqualified across the program.
using uni::file_inode_of;
using uni::get_file_stats;
using uni::narrow_of;
using uni::open_checked;
using uni::read_whole_file;
using uni::stat_file;
using uni::utf8_to_wide;
using uni::wide_of;
using uni::wide_to_utf8;
