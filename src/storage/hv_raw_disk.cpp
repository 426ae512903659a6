#include "storage/hv_raw_disk.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#ifdef __APPLE__
#include <sys/disk.h>
#else
#include <linux/fs.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "storage/hv_fileio.h"
#include "storage/hv_text_conversion.h"
#include "storage/hv_vmdk.h"

namespace {

// The device's own idea of its size; both stay 0 when it won't tell (a plain file, for one).
void ask_device_geometry(int fd, uint64_t& bytes, uint32_t& block_size) {
    bytes = 0;
    block_size = 0;
#ifdef __APPLE__
    uint64_t block_count = 0;
    ioctl(fd, DKIOCGETBLOCKCOUNT, &block_count);
    ioctl(fd, DKIOCGETBLOCKSIZE, &block_size);
    bytes = block_count * block_size;
#else
    uint64_t total = 0;
    int logical = 0;
    ioctl(fd, BLKGETSIZE64, &total);
    ioctl(fd, BLKSSZGET, &logical);
    block_size = logical > 0 ? static_cast<uint32_t>(logical) : 0;
    bytes = block_size != 0 ? total : 0;
#endif
}

}  // namespace

RAW_DISK_IO::RAW_DISK_IO(std::string device, bool write, bool /*reserved_a*/, bool /*reserved_b*/, int disk_kind) {
    clear();
    if (device.empty()) return;
    std::wstring wide = wide_of(device);
    if (wide.empty()) return;
    if (disk_kind >= 1 && disk_kind <= 3) disk_kind = kind_device;
    kind = disk_kind;
    wide_path = wide;
    narrow_path = device;
    write_mode = write;
    fd = open_checked(narrow_path, write ? O_RDWR : O_RDONLY, write ? 0606 : 0404);
    if (fd == -1) return;

    uint32_t block_size = 0;
    ask_device_geometry(fd, byte_count, block_size);
    sector_size = block_size;
    if (byte_count == 0) {
        // Not a disk device, or it won't say: the end of the file is the size.
        off_t end = lseek(fd, 0, SEEK_END);
        byte_count = static_cast<uint64_t>(static_cast<int64_t>(end));
        lseek(fd, 0, SEEK_SET);
        sector_size = 512;
    }
    is_open = true;
}

RAW_DISK_IO::RAW_DISK_IO(std::vector<std::wstring> const& files, bool write, bool defer) {
    clear();
    if (files.empty()) return;
    kind = kind_vmdk;
    write_mode = write;
    if (!defer) collection.reset(new (std::nothrow) VMWARE_COLLECTION(write));
    if (!collection) return;
    if (!collection->open_files(files) || !collection->link()) return;
    narrow_path = collection->root->path;
    fd = collection->root->fd;
    byte_count = collection->root->capacity_bytes();
    sector_size = 512;
    is_open = true;
}

RAW_DISK_IO::~RAW_DISK_IO() {
    if (collection) {
        collection.reset();  // closes every disk, the root's descriptor with them
        fd = -1;
    } else if (fd != -1) {
        ::close(fd);
        fd = -1;
    }
    is_open = false;
}

void RAW_DISK_IO::clear() {
    collection.reset();
    write_mode = false;
    fd = -1;
    sector_size = 512;
    narrow_path.clear();
    wide_path.clear();
    kind = kind_closed;
    is_open = false;
    byte_count = 0;
}

bool RAW_DISK_IO::read(void* buffer, uint32_t& length, uint64_t offset) {
    if (buffer == nullptr || !is_open || fd == -1) return false;
    if (length == 0 || static_cast<int64_t>(byte_count) <= static_cast<int64_t>(offset)) return false;
    if (kind == kind_vmdk) {
        if (!collection) return false;
        return collection->read(buffer, offset, length);
    }
    if (kind != kind_device) return false;
    off_t at = lseek(fd, static_cast<off_t>(offset), SEEK_SET);
    if (at == -1) return false;
    uint64_t left = byte_count - static_cast<uint64_t>(at);
    if (length > left) length = static_cast<uint32_t>(left);
    // No alignment and no retry: what read(2) delivers isn't kept, a short read leaves old bytes.
    return ::read(fd, buffer, length) != -1;
}

bool RAW_DISK_IO::read(uint64_t offset, uint8_t* buffer, size_t length) {
    if (buffer == nullptr || !is_open || fd == -1) return false;
    if (kind == kind_vmdk) {
        if (!collection) return false;
        // The chain answers past its capacity with zeros, as it does for grains no file holds.
        while (length > 0) {
            uint32_t piece = static_cast<uint32_t>(std::min<size_t>(length, 1u << 30));
            if (!collection->read(buffer, offset, piece)) return false;
            buffer += piece;
            offset += piece;
            length -= piece;
        }
        return true;
    }
    return kind == kind_device && read_descriptor(fd, byte_count, offset, buffer, length);
}

const uint8_t* RAW_DISK_IO::view(uint64_t offset, size_t length) {
    if (!is_open || kind != kind_vmdk || !collection || length > UINT32_MAX) return nullptr;
    return collection->view(offset, static_cast<uint32_t>(length));
}

uint64_t RAW_DISK_IO::next_data(uint64_t offset) {
    if (!is_open || kind != kind_vmdk || !collection) return offset;
    return collection->next_held(offset);
}

bool RAW_DISK_IO::next_lost_range(uint64_t& offset, uint64_t& length) {
    return collection && collection->next_lost_range(offset, length);
}
