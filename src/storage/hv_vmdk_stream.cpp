// The grains of streamOptimized extents (as written into OVA exports): the tables point at grain markers,
// each followed by the grain's deflate data, which zlib inflates when the grain is read.
#include <algorithm>
#include <cstring>

#include "foundation/hv_bytes.h"
#include "storage/hv_vmdk.h"

#ifdef RAVEL_HAVE_ZLIB
#include <zlib.h>

namespace {

// Deflate data of a grain can't be much longer than the grain, even for bytes that don't compress.
uint64_t longest_deflate(uint64_t grain) { return grain + grain / 8 + 1024; }

}  // namespace
#endif

uint64_t GRAIN_MARKER::sector() const { return hv::le64(bytes.data(), size, at_sector); }
uint32_t GRAIN_MARKER::data_size() const { return hv::le32(bytes.data(), size, at_data_size); }

#ifdef RAVEL_HAVE_ZLIB
bool VMWARE_DISK::inflate_offered() { return true; }
#else
bool VMWARE_DISK::inflate_offered() { return false; }
#endif

const uint8_t* VMWARE_DISK::inflated_grain(uint64_t marker_at, uint64_t index) {
    if (index == inflated_index) return inflated_good ? inflated.data() : nullptr;
    inflated_index = index;
    inflated_good = false;
#ifdef RAVEL_HAVE_ZLIB
    GRAIN_MARKER marker;
    if (marker_at > file_size || marker.size > file_size - marker_at ||
        !source->read(marker_at, marker.bytes.data(), marker.size))
        return nullptr;
    // A marker that names another grain means the table points at the wrong place.
    const uint64_t data_at = marker_at + marker.size;
    if (marker.sector() != index * header.grain_size() || marker.data_size() == 0 ||
        marker.data_size() > longest_deflate(grain_bytes) || marker.data_size() > file_size - data_at)
        return nullptr;
    std::vector<uint8_t> deflated(marker.data_size());
    if (!source->read(data_at, deflated.data(), deflated.size())) return nullptr;
    inflated.resize(static_cast<size_t>(grain_bytes));
    uLongf produced = static_cast<uLongf>(grain_bytes);
    if (uncompress(inflated.data(), &produced, deflated.data(), static_cast<uLong>(deflated.size())) != Z_OK)
        return nullptr;
    // A grain that ends early, as a disk's last may, reads as zeros after its data.
    std::memset(inflated.data() + produced, 0, static_cast<size_t>(grain_bytes - produced));
    inflated_good = true;
    return inflated.data();
#else
    (void)marker_at;
    return nullptr;
#endif
}

bool VMWARE_DISK::read_compressed(uint8_t* buffer, uint64_t offset, uint32_t length) {
    uint32_t done = 0;
    while (done < length) {
        const uint64_t at = offset + done;
        const uint64_t within = at % grain_bytes;
        const uint32_t piece = static_cast<uint32_t>(std::min<uint64_t>(grain_bytes - within, length - done));
        uint64_t marker_at = 0;
        if (!map_offset(at - within, marker_at)) return false;
        const uint8_t* grain = inflated_grain(marker_at, at / grain_bytes);
        if (grain == nullptr) return false;
        std::memcpy(buffer + done, grain + within, piece);
        done += piece;
    }
    return true;
}
