#include "storage/hv_image.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "storage/hv_fileio.h"

const uint8_t* image_reader::view(uint64_t, size_t) { return nullptr; }
uint64_t image_reader::next_data(uint64_t offset) { return offset; }
bool image_reader::next_lost_range(uint64_t&, uint64_t&) { return false; }

const uint8_t* view_or_read(image_reader& image, uint64_t offset, size_t length, std::vector<uint8_t>& scratch) {
    if (const uint8_t* lent = image.view(offset, length)) return lent;
    if (scratch.size() < length) scratch.resize(length);
    return image.read(offset, scratch.data(), length) ? scratch.data() : nullptr;
}

// ---- memory ------------------------------------------------------------------------------------

bool memory_image::read(uint64_t offset, uint8_t* buffer, size_t length) {
    size_t held = offset < size_ ? static_cast<size_t>(std::min<uint64_t>(length, size_ - offset)) : 0;
    if (held) std::memcpy(buffer, data_ + offset, held);
    std::memset(buffer + held, 0, length - held);
    return true;
}

const uint8_t* memory_image::view(uint64_t offset, size_t length) {
    return offset <= size_ && length <= size_ - offset ? data_ + offset : nullptr;
}

// ---- mapped windows ------------------------------------------------------------------------------

namespace {

// A file that shrinks while it is mapped faults with SIGBUS where its pages went. Inside a window of
// ours the page is replaced by zeros and the scan goes on, as a read past the new end would give;
// any other SIGBUS keeps its usual course.
struct live_window {
    uintptr_t begin = 0, end = 0;
};
constexpr int max_windows = 64;
live_window windows[max_windows];
volatile sig_atomic_t window_count = 0;
bool guard_installed = false;
uintptr_t page_size = 4096;  // taken before the handler is installed: sysconf isn't safe inside it

void on_bus_error(int, siginfo_t* info, void*) {
    const uintptr_t at = reinterpret_cast<uintptr_t>(info->si_addr);
    for (int i = 0; i < window_count; ++i) {
        if (at >= windows[i].begin && at < windows[i].end) {
            void* start = reinterpret_cast<void*>(at & ~(page_size - 1));
            if (mmap(start, page_size, PROT_READ, MAP_PRIVATE | MAP_FIXED | MAP_ANONYMOUS, -1, 0) != MAP_FAILED) return;
        }
    }
    signal(SIGBUS, SIG_DFL);  // not ours: the fault repeats and takes its default course
}

bool track_window(const void* base, size_t length) {
    if (!guard_installed) {
        page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
        struct sigaction action {};
        action.sa_sigaction = on_bus_error;
        action.sa_flags = SA_SIGINFO;
        sigemptyset(&action.sa_mask);
        if (sigaction(SIGBUS, &action, nullptr) != 0) return false;
        guard_installed = true;
    }
    if (window_count == max_windows) return false;
    const uintptr_t begin = reinterpret_cast<uintptr_t>(base);
    windows[window_count].begin = begin;
    windows[window_count].end = begin + length;
    window_count = window_count + 1;
    return true;
}

void forget_window(const void* base) {
    const uintptr_t begin = reinterpret_cast<uintptr_t>(base);
    for (int i = 0; i < window_count; ++i) {
        if (windows[i].begin == begin) {
            windows[i] = windows[window_count - 1];
            window_count = window_count - 1;
            return;
        }
    }
}

}  // namespace

// ---- files -----------------------------------------------------------------------------------------

file_image::~file_image() { close(); }

bool file_image::open(const std::string& path) {
    close();
    struct stat status;
    const int fd = open_checked(path, O_RDONLY, 0404, &status);
    if (fd == -1) return false;
    fd_ = fd;
    owned_ = true;
    size_ = uni::descriptor_size(fd, &status);
    return true;
}

bool file_image::attach(int fd) {
    close();
    if (fd == -1) return false;
    fd_ = fd;
    owned_ = false;
    size_ = uni::descriptor_size(fd);
    return true;
}

void file_image::close() {
    unmap();
    if (fd_ != -1 && owned_) ::close(fd_);
    fd_ = -1;
    owned_ = false;
    size_ = 0;
    hole_begin_ = data_begin_ = data_end_ = 0;
}

void file_image::unmap() {
    if (map_ == nullptr) return;
    forget_window(map_);
    munmap(map_, map_length_);
    map_ = nullptr;
    map_length_ = 0;
}

bool read_descriptor(int fd, uint64_t size, uint64_t offset, uint8_t* buffer, size_t length) {
    size_t done = 0;
    while (done < length && offset + done < size) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(length - done, size - (offset + done)));
        const ssize_t got = pread(fd, buffer + done, want, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) break;  // shorter than it was: the rest reads as zeros
        done += static_cast<size_t>(got);
    }
    std::memset(buffer + done, 0, length - done);
    return true;
}

bool file_image::read(uint64_t offset, uint8_t* buffer, size_t length) {
    return fd_ != -1 && read_descriptor(fd_, size_, offset, buffer, length);
}

const uint8_t* file_image::view(uint64_t offset, size_t length) {
    if (fd_ == -1 || size_ < map_threshold || offset > size_ || length > size_ - offset || length == 0) return nullptr;
    if (map_ != nullptr && offset >= map_offset_ && offset + length <= map_offset_ + map_length_)
        return map_ + (offset - map_offset_);
    unmap();
    const uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const uint64_t start = offset & ~(page - 1);
    const uint64_t want = std::max<uint64_t>(map_window, offset + length - start);
    const size_t span = static_cast<size_t>(std::min<uint64_t>(want, size_ - start));
    void* mapped = mmap(nullptr, span, PROT_READ, MAP_SHARED, fd_, static_cast<off_t>(start));
    if (mapped == MAP_FAILED) return nullptr;
    if (!track_window(mapped, span)) {
        munmap(mapped, span);
        return nullptr;
    }
    map_ = static_cast<uint8_t*>(mapped);
    map_offset_ = start;
    map_length_ = span;
    return map_ + (offset - start);
}

uint64_t file_image::next_data(uint64_t offset) {
    if (fd_ == -1 || offset >= size_) return offset;
    if (offset >= hole_begin_ && offset < data_end_) return std::max(offset, data_begin_);
    const off_t data = lseek(fd_, static_cast<off_t>(offset), SEEK_DATA);
    if (data < 0 && errno == ENXIO) {  // nothing but a hole up to the end
        hole_begin_ = offset;
        data_begin_ = data_end_ = size_;
        return size_;
    }
    if (data < 0) return offset;
    const off_t hole = lseek(fd_, data, SEEK_HOLE);
    hole_begin_ = offset;
    data_begin_ = static_cast<uint64_t>(data);
    data_end_ = hole < 0 ? size_ : static_cast<uint64_t>(hole);
    return data_begin_;
}
