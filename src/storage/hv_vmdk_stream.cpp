#include "storage/hv_vmdk_stream.h"

#include <cstring>

#include "foundation/hv_bytes.h"
#include "storage/hv_image.h"

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
bool grain_inflater::offered() { return true; }
#else
bool grain_inflater::offered() { return false; }
#endif

void grain_inflater::clear() {
    inflated_.clear();
    index_ = UINT64_MAX;
    good_ = false;
}

const uint8_t* grain_inflater::grain(image_reader& source, uint64_t source_size, uint64_t marker_at, uint64_t index,
                                     uint64_t sector, uint64_t grain_bytes) {
    if (index == index_) return good_ ? inflated_.data() : nullptr;
    index_ = index;
    good_ = false;
#ifdef RAVEL_HAVE_ZLIB
    GRAIN_MARKER marker;
    if (marker_at > source_size || marker.size > source_size - marker_at ||
        !source.read(marker_at, marker.bytes.data(), marker.size))
        return nullptr;
    // A marker that names another grain means the table points at the wrong place.
    const uint64_t data_at = marker_at + marker.size;
    if (marker.sector() != sector || marker.data_size() == 0 || marker.data_size() > longest_deflate(grain_bytes) ||
        marker.data_size() > source_size - data_at)
        return nullptr;
    std::vector<uint8_t> deflated(marker.data_size());
    if (!source.read(data_at, deflated.data(), deflated.size())) return nullptr;
    inflated_.resize(static_cast<size_t>(grain_bytes));
    uLongf produced = static_cast<uLongf>(grain_bytes);
    if (uncompress(inflated_.data(), &produced, deflated.data(), static_cast<uLong>(deflated.size())) != Z_OK)
        return nullptr;
    // A grain that ends early, as a disk's last may, reads as zeros after its data.
    std::memset(inflated_.data() + produced, 0, static_cast<size_t>(grain_bytes - produced));
    good_ = true;
    return inflated_.data();
#else
    (void)source, (void)source_size, (void)marker_at, (void)sector, (void)grain_bytes;
    return nullptr;
#endif
}
