#include "storage/hv_fileio.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <cstring>
#include <new>
#include <stdexcept>

#ifdef __APPLE__
#include <sys/disk.h>
#else
#include <linux/fs.h>
#endif

#include "storage/hv_text_conversion.h"

namespace uni {

namespace {

constexpr uint64_t max_read_step = 0x10000000;
constexpr mode_t mode_for_write = 0606;
constexpr mode_t mode_for_read = 0404;

// Bits of st_mode as the refusal test names them: a named pipe has 0x1000, a socket 0xC000.
constexpr unsigned fifo_bit = 0x1000;
constexpr unsigned socket_bits = 0xC000;

// Size of a device by the host's request; a failed request leaves the preset 0 standing.
uint64_t device_size(int fd) {
#ifdef __APPLE__
    uint64_t count = 0;
    uint32_t block = 0;
    ioctl(fd, DKIOCGETBLOCKCOUNT, &count);
    ioctl(fd, DKIOCGETBLOCKSIZE, &block);
    return count * block;
#else
    uint64_t bytes = 0;
    ioctl(fd, BLKGETSIZE64, &bytes);
    return bytes;
#endif
}

std::wstring without_trailing_slashes(std::wstring path) {
    while (!path.empty() && (path.back() == L'/' || path.back() == L'\\')) path.pop_back();
    return path;
}

}  // namespace

// ---- fileio ---------------------------------------------------------------------------------

fileio::fileio() = default;

fileio::fileio(const std::string& path_in, bool write, bool retain, int) {
    if (!open(path_in, write, retain, true)) close();
}

fileio::fileio(const std::wstring& path_in, bool write, bool retain, int) {
    if (!open(path_in, write, retain, true)) close();
}

fileio::~fileio() { close(); }

bool fileio::open(const std::string& path_in, bool write, bool retain, bool truncate) {
    return open(wide_of(path_in), write, retain, truncate);
}

bool fileio::open(const std::wstring& path_in, bool write, bool retain, bool truncate) {
    if (path_in.empty()) return false;
    std::wstring bare = without_trailing_slashes(path_in);
    close();
    writable = write;
    retain_flag = retain;
    path = bare;
    int flags = O_RDONLY;
    if (write) flags = truncate ? (O_RDWR | O_CREAT | O_TRUNC) : O_RDWR;
    fd = open_checked(path, flags, write ? mode_for_write : mode_for_read);
    if (fd == -1) return false;
    opened = true;
    size = get_size();
    return true;
}

uint64_t fileio::get_size() { return is_open() ? descriptor_size(fd) : 0; }

uint64_t descriptor_size(int fd, const struct stat* known) {
    struct stat st {};
    if (known != nullptr || fstat(fd, &st) == 0) {
        if (known != nullptr) st = *known;
        // A folder has no size to read: some file systems answer a huge end offset for it.
        if (S_ISDIR(st.st_mode)) return 0;
        if (S_ISREG(st.st_mode)) return static_cast<uint64_t>(st.st_size);  // what seeking to the end answers
    }
    off_t here = lseek(fd, 0, SEEK_CUR);
    off_t end = lseek(fd, 0, SEEK_END);
    uint64_t answer = static_cast<uint64_t>(end);
    if (end == -1 || end == 0) answer = device_size(fd);
    lseek(fd, here, SEEK_SET);
    return answer == static_cast<uint64_t>(-1) ? 0 : answer;
}

bool fileio::read(void* buffer, uint32_t& length, uint64_t offset) {
    if (!is_open()) return false;
    if (static_cast<int64_t>(size) <= static_cast<int64_t>(offset)) return false;
    off_t at = lseek(fd, static_cast<off_t>(offset), SEEK_SET);
    if (at == -1) return false;
    if (length == 0) return true;
    uint64_t left = size - static_cast<uint64_t>(at);
    if (length > left) length = static_cast<uint32_t>(left);
    ssize_t got = ::read(fd, buffer, length);
    length = static_cast<uint32_t>(got);  // -1 shows as 0xFFFFFFFF
    return got != -1;
}

bool fileio::read(void* buffer, uint64_t& length, uint64_t offset) {
    if (length > 0xFFFFFFFFull) return false;
    uint32_t part = static_cast<uint32_t>(length);
    bool done = read(buffer, part, offset);
    length = done ? part : 0;
    return done;
}

bool fileio::read_into(std::vector<uint8_t>& out, uint64_t count, uint64_t offset) {
    if (!is_open()) return false;
    if (static_cast<int64_t>(size) <= static_cast<int64_t>(offset)) return false;
    if (count == 0) return true;
    off_t at = lseek(fd, static_cast<off_t>(offset), SEEK_SET);
    if (at == -1) return false;
    count = std::min(count, size - static_cast<uint64_t>(at));
    if (out.size() != count) {
        try {
            out.resize(count);
        } catch (const std::bad_alloc&) {
            return false;
        } catch (const std::length_error&) {
            return false;
        }
    }
    uint64_t done = 0;
    while (done < count) {
        size_t step = static_cast<size_t>(std::min(count - done, max_read_step));
        ssize_t got = ::read(fd, out.data() + done, step);
        if (got < 1) break;
        done += static_cast<uint64_t>(got);
    }
    if (done < count) out.resize(done);
    return true;
}

bool fileio::append(const char* data, uint32_t count) { return append_some(data, count) != -1; }

long fileio::append_some(const char* data, uint32_t count) {
    if (!is_open() || data == nullptr) return -1;
    if (count == 0) return 0;
    lseek(fd, 0, SEEK_END);
    ssize_t put;
    do {
        put = ::write(fd, data, count);
    } while (put < 0 && errno == EINTR);
    if (put < 0) return -1;
    size = static_cast<uint64_t>(lseek(fd, 0, SEEK_END));
    return static_cast<long>(put);
}

bool fileio::append_text(std::ostringstream& text) {
    if (!is_open()) return false;
    std::string bytes = text.str();
    if (bytes.empty()) return true;
    return append(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

bool append_to_file(const std::string& path, std::ostringstream& text) {
    fileio file;
    if (!file.open(path, true, true, false)) return false;
    const bool ok = file.append_text(text);
    file.close();
    return ok;
}

void fileio::close() {
    if (owned_output) {
        owned_output->flush();
        owned_output.reset();  // its stream buffer writes out what it holds
        output = nullptr;
    }
    if (fd != -1) ::close(fd);
    fd = -1;
    size = 0;
    writable = false;
    opened = false;
    retain_flag = false;
    path.clear();
}

// ---- opening and status ---------------------------------------------------------------------

int open_checked(const std::string& path, int flags, int mode, struct stat* status) {
    if (path.empty()) return -1;
    int fd = ::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC, static_cast<mode_t>(mode));
    if (fd == -1) return -1;
    struct stat own;
    struct stat& st = status != nullptr ? *status : own;
    unsigned kind = 0;
    bool refused = fstat(fd, &st) != 0;
    if (!refused) {
        kind = static_cast<unsigned>(st.st_mode);
        refused = (kind & fifo_bit) != 0 || (kind & socket_bits) == socket_bits;
    }
    if (refused) {
        ::close(fd);
        return -1;
    }
    return fd;
}

int open_checked(const std::wstring& path, int flags, int mode) {
    return open_checked(narrow_of(path), flags, mode);
}

bool read_whole_file(std::vector<uint8_t>& out, const std::string& path, uint32_t limit) {
    out.clear();
    if (path.empty() || limit == 0) return false;
    fileio file(path, false, true, 0);
    if (!file.is_open()) return false;
    uint64_t size = file.get_size();
    if (static_cast<uint32_t>(size) == 0) return false;  // also a file of exactly 4 GiB
    return file.read_into(out, std::min<uint64_t>(size, limit), 0);
}

}  // namespace uni
