#include "storage/hv_report_stream.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>

namespace uni {

namespace {

constexpr unsigned long report_buffer_size = 0x40000;  // one write(2) per quarter megabyte

}  // namespace

fileio_output* fileio::get_output() {
    if (output != nullptr) return output;
    fileio_output* made = new (std::nothrow) fileio_output(this, report_buffer_size);
    if (made == nullptr) return nullptr;
    if (!is_open() || !made->is_open) {  // closed file, or no buffer to be had
        delete made;
        return nullptr;
    }
    output = made;
    owned_output.reset(made);
    return output;
}

fileio_ostream::fileio_ostream(fileio* target, unsigned long buffer_bytes)
    : streambuf_generic_output<char>(buffer_bytes), file(target) {
    ready = ok && file != nullptr && file->is_open();
}

fileio_ostream::~fileio_ostream() { flush(); }

long fileio_ostream::generic_write(const char* data, unsigned int count) {
    return file != nullptr ? file->append_some(data, count) : -1;
}

long stdout_report_guard::descriptor_buffer::generic_write(const char* data, unsigned int count) {
    ssize_t put;
    do {
        put = ::write(1, data, count);
    } while (put < 0 && errno == EINTR);
    return put;
}

stdout_report_guard::stdout_report_guard() : buf(report_buffer_size) {
    if (buf.ready()) saved = std::cout.rdbuf(&buf);
}

bool stdout_report_guard::write_out() {
    if (!saved) return static_cast<bool>(std::cout.flush());
    return buf.flush() == 0;
}

stdout_report_guard::~stdout_report_guard() {
    if (!saved) return;
    buf.flush();
    std::cout.rdbuf(saved);
}

fileio_output::fileio_output(fileio* file, unsigned long buffer_bytes)
    : std::ostream(nullptr), buf(file, buffer_bytes) {
    if (buf.ready) {
        rdbuf(&buf);
        is_open = true;
    }
}

fileio_output::~fileio_output() { close(); }

bool fileio_output::write_out() { return buf.flush() == 0; }

void fileio_output::close() {
    if (!is_open) return;
    std::ostream::flush();
    is_open = false;
}
}  // namespace uni
