#include "storage/hv_ewf.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

#include "foundation/hv_bytes.h"

#ifdef RAVEL_HAVE_EWF
// libewf declares the pool functions, with which a set in memory is opened, only when asked to. They
// are libewf's own copy of libbfio, the one it reads through.
#define HAVE_LIBBFIO 1
#include <libewf.h>
#endif

// ---- the set's structure, without libewf -------------------------------------------------------

std::string EWF_SECTION_DESCRIPTOR::type() const {
    const char* text = reinterpret_cast<const char*>(bytes.data() + at_type);
    return std::string(text, strnlen(text, type_size));
}

uint64_t EWF_SECTION_DESCRIPTOR::next() const { return hv::le64(bytes.data(), size, at_next); }

ewf_segment_end read_segment_end(image_reader& segment) {
    const uint64_t file_size = segment.size();
    EWF_SECTION_DESCRIPTOR descriptor;
    // Every section starts past the one before: the walk ends.
    uint64_t at = EWF_SECTION_DESCRIPTOR::first_at;
    while (at <= file_size && file_size - at >= EWF_SECTION_DESCRIPTOR::size) {
        if (!segment.read(at, descriptor.bytes.data(), descriptor.bytes.size())) break;
        const std::string type = descriptor.type();
        if (type == "next") return ewf_segment_end::next;
        if (type == "done") return ewf_segment_end::done;
        if (descriptor.next() < at + EWF_SECTION_DESCRIPTOR::size) break;
        at = descriptor.next();
    }
    return ewf_segment_end::cut;
}

std::string next_segment_name(const std::string& name) {
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || name.size() - dot != 4) return "";
    std::string extension = name.substr(dot + 1);
    auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
    auto digit = [](char c) { return c >= '0' && c <= '9'; };
    if (!letter(extension[0])) return "";
    const char a = extension[0] >= 'a' ? 'a' : 'A', z = a + 25;
    if (digit(extension[1]) && digit(extension[2])) {
        const int number = (extension[1] - '0') * 10 + (extension[2] - '0');
        if (number == 0) return "";
        if (number < 99) {
            extension[1] = static_cast<char>('0' + (number + 1) / 10);
            extension[2] = static_cast<char>('0' + (number + 1) % 10);
        } else {
            extension[1] = extension[2] = a;
        }
    } else {
        // Three letters count on as a number in base 26.
        for (char c : extension)
            if (c < a || c > z) return "";
        int i = 2;
        for (; i >= 0 && extension[i] == z; --i) extension[i] = a;
        if (i < 0) return "";
        ++extension[i];
    }
    return name.substr(0, dot + 1) + extension;
}

// ---- the media, through libewf ------------------------------------------------------------------

#ifdef RAVEL_HAVE_EWF

namespace {

// Which segment of a set that libewf refused, or found incomplete, is at fault: the first that ends
// before its closing section is cut short; when each is whole and the last says another follows,
// that one is missing. `segment_at` gives a segment's bytes, null when they can't be had.
ewf_fault fault_of_set(const std::vector<std::string>& names,
                       const std::function<std::unique_ptr<image_reader>(size_t)>& segment_at, std::string& segment) {
    for (size_t i = 0; i < names.size(); ++i) {
        std::unique_ptr<image_reader> bytes = segment_at(i);
        if (!bytes) {
            segment = names[i];
            return ewf_fault::segment_missing;
        }
        const ewf_segment_end end = read_segment_end(*bytes);
        if (end == ewf_segment_end::cut) {
            segment = names[i];
            return ewf_fault::segment_cut;
        }
        if (end == ewf_segment_end::done || i + 1 < names.size()) continue;
        segment = next_segment_name(names[i]);
        return segment.empty() ? ewf_fault::damaged : ewf_fault::segment_missing;
    }
    return ewf_fault::damaged;
}

uint64_t saturated_product(uint64_t a, uint64_t b) { return b != 0 && a > UINT64_MAX / b ? UINT64_MAX : a * b; }

// libewf describes each failure in an object, which only libewf frees, also for the libbfio it carries;
// only the failure counts here.
class ewf_error {
public:
    ewf_error() = default;
    ewf_error(const ewf_error&) = delete;
    ewf_error& operator=(const ewf_error&) = delete;
    ~ewf_error() { reset(); }
    libewf_error_t** get() {
        reset();
        return &error_;
    }

private:
    void reset() {
        if (error_ != nullptr) libewf_error_free(&error_);
    }
    libewf_error_t* error_ = nullptr;
};

}  // namespace

struct ewf_image::library {
    libewf_handle_t* handle = nullptr;
    libbfio_pool_t* pool = nullptr;  // the segments in memory; libewf reads them but doesn't own them

    ~library() {
        ewf_error error;
        if (handle != nullptr) {
            libewf_handle_close(handle, error.get());
            libewf_handle_free(&handle, error.get());
        }
        ewf_error pool_error;
        if (pool != nullptr) libbfio_pool_free(&pool, pool_error.get());
    }
};

bool ewf_image::offered() { return true; }

ewf_fault ewf_image::open(const std::string& path, std::string& segment) {
    close();
    segment.clear();
    {
        // The file layer's gate: a missing or unreadable file, a pipe.
        file_image first;
        if (!first.open(path)) return ewf_fault::cannot_open;
    }
    ewf_error error;
    if (libewf_check_file_signature(path.c_str(), error.get()) != 1) return ewf_fault::not_ewf;
    std::vector<std::string> names;
    char** globbed = nullptr;
    int count = 0;
    if (libewf_glob(path.c_str(), path.size(), LIBEWF_FORMAT_UNKNOWN, &globbed, &count, error.get()) == 1) {
        for (int i = 0; i < count; ++i) names.emplace_back(globbed[i]);
        libewf_glob_free(globbed, count, error.get());
    }
    const bool named = !names.empty();
    if (!named) names.push_back(path);  // a name outside the naming (case.img) is a set of one
    std::vector<char*> pointers;
    for (std::string& name : names) pointers.push_back(&name[0]);

    library_.reset(new (std::nothrow) library());
    if (!library_ || libewf_handle_initialize(&library_->handle, error.get()) != 1) {
        close();
        return ewf_fault::damaged;
    }
    if (libewf_handle_open(library_->handle, pointers.data(), static_cast<int>(pointers.size()), LIBEWF_OPEN_READ,
                           error.get()) == 1 &&
        take_media())
        return ewf_fault::none;
    close();
    const ewf_fault fault = fault_of_set(
        names,
        [&names](size_t i) -> std::unique_ptr<image_reader> {
            std::unique_ptr<file_image> file(new (std::nothrow) file_image());
            if (!file || !file->open(names[i])) return nullptr;
            return file;
        },
        segment);
    // Outside the naming, the segment that should follow has no name to tell.
    if (fault == ewf_fault::segment_missing && !named) {
        segment.clear();
        return ewf_fault::damaged;
    }
    return fault;
}

ewf_fault ewf_image::open_memory(const std::vector<std::pair<const uint8_t*, size_t>>& segments,
                                 std::string& segment) {
    close();
    segment.clear();
    if (segments.empty()) return ewf_fault::cannot_open;
    library_.reset(new (std::nothrow) library());
    ewf_error pool_error;
    if (!library_ || libbfio_pool_initialize(&library_->pool, 0, LIBBFIO_POOL_UNLIMITED_NUMBER_OF_OPEN_HANDLES,
                                             pool_error.get()) != 1) {
        close();
        return ewf_fault::damaged;
    }
    std::vector<std::string> names;
    for (const auto& bytes : segments) {
        names.push_back(names.empty() ? "segment.E01" : next_segment_name(names.back()));
        libbfio_handle_t* handle = nullptr;
        if (libbfio_memory_range_initialize(&handle, pool_error.get()) != 1) {
            close();
            return ewf_fault::damaged;
        }
        int entry = 0;
        ewf_error error;
        // libbfio asks for writable memory, but the set is opened for reading only.
        const bool ready =
            libbfio_memory_range_set(handle, const_cast<uint8_t*>(bytes.first), bytes.second, pool_error.get()) == 1 &&
            (names.size() > 1 || libewf_check_file_signature_file_io_handle(handle, error.get()) == 1) &&
            libbfio_pool_append_handle(library_->pool, &entry, handle, LIBBFIO_OPEN_READ, pool_error.get()) == 1;
        if (!ready) {
            libbfio_handle_free(&handle, pool_error.get());
            close();
            return names.size() == 1 ? ewf_fault::not_ewf : ewf_fault::damaged;
        }
    }
    ewf_error error;
    if (libewf_handle_initialize(&library_->handle, error.get()) != 1) {
        close();
        return ewf_fault::damaged;
    }
    if (libewf_handle_open_file_io_pool(library_->handle, library_->pool, LIBEWF_OPEN_READ, error.get()) == 1 &&
        take_media())
        return ewf_fault::none;
    close();
    return fault_of_set(
        names,
        [&segments](size_t i) -> std::unique_ptr<image_reader> {
            return std::unique_ptr<image_reader>(new (std::nothrow) memory_image(segments[i].first, segments[i].second));
        },
        segment);
}

// libewf opens a set whose later segments are missing or cut short, and says so only when asked: such
// a set is refused, as is one whose media it can't describe.
bool ewf_image::take_media() {
    ewf_error error;
    size64_t media = 0;
    uint32_t chunk = 0, sector = 0;
    if (libewf_handle_segment_files_corrupted(library_->handle, error.get()) != 0 ||
        libewf_handle_get_media_size(library_->handle, &media, error.get()) != 1 ||
        libewf_handle_get_chunk_size(library_->handle, &chunk, error.get()) != 1 ||
        libewf_handle_get_bytes_per_sector(library_->handle, &sector, error.get()) != 1 || chunk == 0 || sector == 0 ||
        libewf_handle_set_read_zero_chunk_on_error(library_->handle, 1, error.get()) != 1)
        return false;
    media_size_ = media;
    chunk_size_ = chunk;
    sector_size_ = sector;
    return true;
}

bool ewf_image::read_piece(uint64_t offset, uint8_t* buffer, size_t length) {
    ewf_error error;
    const ssize_t got = libewf_handle_read_random(library_->handle, buffer, length, static_cast<off64_t>(offset),
                                                  error.get());
    if (got < 0 || static_cast<size_t>(got) != length) return false;
    const uint64_t chunk_begin = offset - offset % chunk_size_;
    return !checksum_failed(chunk_begin, chunk_begin + std::min(chunk_size_, media_size_ - chunk_begin));
}

// libewf keeps the sectors of chunks that failed as runs in rising order, neighbours merged: the last run
// that starts before `end` is the only one that may reach into [begin, end).
bool ewf_image::checksum_failed(uint64_t begin, uint64_t end) {
    ewf_error error;
    uint32_t count = 0;
    if (libewf_handle_get_number_of_checksum_errors(library_->handle, &count, error.get()) != 1 || count == 0)
        return false;
    uint64_t first = 0, sectors = 0;
    auto run = [&](uint32_t index) {
        return libewf_handle_get_checksum_error(library_->handle, index, &first, &sectors, error.get()) == 1;
    };
    uint32_t low = 0, high = count;  // runs below `low` start before `end`, runs from `high` on don't
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (!run(middle)) return true;  // a list that can't be read can't vouch for the chunk
        if (saturated_product(first, sector_size_) < end)
            low = middle + 1;
        else
            high = middle;
    }
    if (low == 0) return false;
    if (!run(low - 1)) return true;
    const uint64_t last = first + std::min(sectors, UINT64_MAX - first);
    return saturated_product(last, sector_size_) > begin;
}

bool ewf_image::read(uint64_t offset, uint8_t* buffer, size_t length) {
    if (!library_ || buffer == nullptr) return false;
    size_t done = 0;
    while (done < length) {
        const uint64_t at = offset + done;
        if (at < offset || at >= media_size_) {
            std::memset(buffer + done, 0, length - done);
            break;
        }
        const uint64_t chunk = at / chunk_size_;
        const uint64_t chunk_begin = at - at % chunk_size_;
        const uint64_t chunk_end = chunk_begin + std::min(chunk_size_, media_size_ - chunk_begin);
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(length - done, chunk_end - at));
        if (lost_.holds(chunk) || !read_piece(at, buffer + done, piece)) {
            std::memset(buffer + done, 0, piece);
            lost_.note(chunk, chunk_size_, media_size_);
        }
        done += piece;
    }
    return true;
}

#else

struct ewf_image::library {};

bool ewf_image::offered() { return false; }

ewf_fault ewf_image::open(const std::string&, std::string& segment) {
    close();
    segment.clear();
    return ewf_fault::not_offered;
}

ewf_fault ewf_image::open_memory(const std::vector<std::pair<const uint8_t*, size_t>>&, std::string& segment) {
    close();
    segment.clear();
    return ewf_fault::not_offered;
}

bool ewf_image::read(uint64_t, uint8_t*, size_t) { return false; }

#endif

// ---- either build ---------------------------------------------------------------------------------

ewf_image::ewf_image() = default;

ewf_image::~ewf_image() { close(); }

void ewf_image::close() {
    library_.reset();
    media_size_ = chunk_size_ = sector_size_ = 0;
    lost_.clear();
}

bool ewf_image::next_lost_range(uint64_t& offset, uint64_t& length) { return lost_.next(offset, length); }
