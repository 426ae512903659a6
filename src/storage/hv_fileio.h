// The file object of the portable file layer, and every open of a file or device. Beside it: the
// report stream (hv_report_stream), standard-input lines (hv_stdin_lines), UTF-8 and wide text
// (hv_text_conversion) and a file's status (hv_file_stats). Nothing here prints; each operation
// answers 0/1 (bool) or an empty value and the caller words it.
#pragma once
#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace uni {

class fileio_output;

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

    // Writes at the end of the file; a short write counts as success.
    bool append(const char* data, uint32_t count);
    // One write(2) at the end of the file: the bytes it took, which may be fewer than `count`, or -1.
    long append_some(const char* data, uint32_t count);
    bool append_text(std::ostringstream& text);

    // The 256 KiB report stream over this file, owned by it; null when not open. Defined with the
    // report stream, which writes into the file: the file only ends it.
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
    std::unique_ptr<std::ostream> owned_output;  // `output`, as close() deletes it
};

// Size behind a descriptor: the end of a file, a device's own size, 0 for a folder or anything
// that won't tell. The descriptor's position is left where it was. `known` spares a second status call.
uint64_t descriptor_size(int fd, const struct stat* known = nullptr);

// Every open of a file or device. O_NONBLOCK is always added; named pipes and sockets are
// refused (closed again). Answers the descriptor or -1; `status`, when given, gets the file's status.
int open_checked(const std::string& path, int flags, int mode, struct stat* status = nullptr);
int open_checked(const std::wstring& path, int flags, int mode);

// Appends `text` to the file at `path`, which must exist; false when it won't open or take the bytes.
bool append_to_file(const std::string& path, std::ostringstream& text);

// The first min(size, limit) bytes of a file. Fails for an empty path, a limit of 0, a file that
// won't open, or a size whose low 32 bits are 0.
bool read_whole_file(std::vector<uint8_t>& out, const std::string& path, uint32_t limit);

}  // namespace uni

using uni::open_checked;
using uni::read_whole_file;
