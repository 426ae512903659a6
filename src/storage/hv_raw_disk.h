// One sized, byte-addressed, read-only view of a storage: a device node or image file, or the
// virtual disk of a VMDK chain. The device scan needs nothing else: construct, get_size, read.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/hv_image.h"

struct VMWARE_COLLECTION;

// The device and VMDK forms of the read interface.
class RAW_DISK_IO : public image_reader {
public:
    static constexpr int32_t kind_closed = 8;
    static constexpr int32_t kind_device = 0;
    static constexpr int32_t kind_vmdk = 4;

    // A device or image file, opened by its path as typed. The scan passes (device, 0, 0, 1, 1).
    RAW_DISK_IO(std::string device, bool write, bool reserved_a, bool reserved_b, int kind);
    // The chain made of `files`, in any order. The scan passes (files, 0, 0).
    RAW_DISK_IO(std::vector<std::wstring> const& files, bool write, bool defer);
    ~RAW_DISK_IO() override;
    RAW_DISK_IO(const RAW_DISK_IO&) = delete;
    RAW_DISK_IO& operator=(const RAW_DISK_IO&) = delete;

    // The closed state of the fields; a device's descriptor isn't closed by it.
    void clear();
    bool valid() const { return is_open; }
    uint64_t get_size() const { return is_open ? byte_count : 0; }
    // Reads `length` bytes at `offset`. On a device `length` is cut at the end; on a chain the
    // bytes past the capacity, of unallocated grains and of failed grains come as zeros.
    bool read(void* buffer, uint32_t& length, uint64_t offset);

    uint64_t size() const override { return get_size(); }
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override;
    const uint8_t* view(uint64_t offset, size_t length) override;
    // On a chain: grains that no file holds read as zeros, and need no reading.
    uint64_t next_data(uint64_t offset) override;
    // On a chain: compressed grains that didn't inflate.
    bool next_lost_range(uint64_t& offset, uint64_t& length) override;

    std::unique_ptr<VMWARE_COLLECTION> collection;  // null for a device
    bool write_mode;
    int32_t fd;  // on a chain: the root disk's descriptor, not owned
    uint32_t sector_size;
    std::string narrow_path;
    std::wstring wide_path;
    int32_t kind;
    bool is_open;
    uint64_t byte_count;  // the size
};
