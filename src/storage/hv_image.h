// One read interface for every input the scan walks: a sized, read-only run of bytes. An ordinary
// file, a device, a VMDK chain (RAW_DISK_IO) and a buffer in memory all stand behind it, so the scan
// and the tests and fuzzers that feed it don't care where the bytes come from.
#pragma once
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class image_reader {
public:
    virtual ~image_reader() = default;

    // Bytes of the input.
    virtual uint64_t size() const = 0;

    // Copies `length` bytes at `offset` into `buffer`; bytes at or past size() read as zeros.
    // False when the input could not give them (the buffer's content is then undefined).
    virtual bool read(uint64_t offset, uint8_t* buffer, size_t length) = 0;

    // The bytes [offset, offset + length) lent in place, valid until the next view, read or
    // next_data; null when this reader can't lend them without a copy, and the caller reads instead.
    virtual const uint8_t* view(uint64_t offset, size_t length);

    // The first offset at or after `offset` whose byte may be other than zero; size() or more when
    // none is. A reader that can't tell answers `offset`.
    virtual uint64_t next_data(uint64_t offset);

    // A stretch that read as zeros because the input's own data was damaged there; each is handed
    // out once, oldest first. False when there is none (the plain readers never have one).
    virtual bool next_lost_range(uint64_t& offset, uint64_t& length);
};

// Bytes in memory, not owned: the reader of tests and fuzzers.
class memory_image : public image_reader {
public:
    memory_image(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint64_t size() const override { return size_; }
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override;
    const uint8_t* view(uint64_t offset, size_t length) override;

private:
    const uint8_t* data_;
    size_t size_;
};

// An ordinary file or a device node on a descriptor. Large stretches are lent from a mapped window
// of the file; small files are read with one pread. The file is never opened for writing.
class file_image : public image_reader {
public:
    file_image() = default;
    ~file_image() override;
    file_image(const file_image&) = delete;
    file_image& operator=(const file_image&) = delete;

    // Opens through open_checked (pipes and sockets refused); false when it won't open.
    bool open(const std::string& path);
    // Reads through a descriptor that stays the caller's.
    bool attach(int fd);
    void close();
    bool is_open() const { return fd_ != -1; }
    int descriptor() const { return fd_; }

    // The file layer's size: the end of a file, a device's size, 0 for a folder or anything unsized.
    uint64_t size() const override { return size_; }
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override;
    const uint8_t* view(uint64_t offset, size_t length) override;
    // Holes of a sparse file read as zeros: their bytes need not be read.
    uint64_t next_data(uint64_t offset) override;

    // Files smaller than this are read, not mapped: for many small inputs a read costs less.
    static constexpr uint64_t map_threshold = 1u << 20;
    static constexpr size_t map_window = 8u << 20;

private:
    void unmap();

    int fd_ = -1;
    bool owned_ = false;
    uint64_t size_ = 0;
    uint8_t* map_ = nullptr;
    uint64_t map_offset_ = 0;
    size_t map_length_ = 0;
    // What the last hole look-up told: a hole up to a run of data, and that run.
    uint64_t hole_begin_ = 0, data_begin_ = 0, data_end_ = 0;
};

// `length` bytes at `offset` of a descriptor whose bytes end at `size`, the rest zeros; false on a read error.
bool read_descriptor(int fd, uint64_t size, uint64_t offset, uint8_t* buffer, size_t length);

// Reads through `image` into `scratch` unless the image lends the bytes; null when they can't be had.
const uint8_t* view_or_read(image_reader& image, uint64_t offset, size_t length, std::vector<uint8_t>& scratch);
