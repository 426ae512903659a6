// The buffered report stream: the report's bytes go to their file, or to standard output, in writes of
// a quarter megabyte, never one row at a time; a write that fails is told to the caller, never lost in
// silence.
#pragma once
#include <cstdint>
#include <new>
#include <ostream>
#include <streambuf>
#include <vector>

#include "storage/hv_fileio.h"

namespace uni {

// Called once, at the first write that fails, so that the run can say so then and not hours later.
using write_failure_fn = void (*)(void* context);

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

    void on_failure(write_failure_fn fn, void* context) {
        failure_fn = fn;
        failure_context = context;
    }

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
                if (failure_fn != nullptr) failure_fn(failure_context);
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
    write_failure_fn failure_fn = nullptr;
    void* failure_context = nullptr;
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
    void on_failure(write_failure_fn fn, void* context) { buf.on_failure(fn, context); }

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
    void on_failure(write_failure_fn fn, void* context) { buf.on_failure(fn, context); }

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

}  // namespace uni
