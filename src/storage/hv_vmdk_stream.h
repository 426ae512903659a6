// The grains of streamOptimized extents (as written into OVA exports): the tables point at grain markers,
// each followed by the grain's deflate data, which zlib inflates when the grain is read.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

class image_reader;

// The marker in front of a compressed grain: where the grain lies on the virtual disk, and the bytes of
// deflate data (zlib format) that follow it at once.
struct GRAIN_MARKER {
    static constexpr size_t size = 12;
    static constexpr size_t at_sector = 0;     // u64 the grain's first sector on the virtual disk
    static constexpr size_t at_data_size = 8;  // u32 bytes of compressed data

    std::array<uint8_t, size> bytes{};

    uint64_t sector() const;
    uint32_t data_size() const;
};
static_assert(sizeof(GRAIN_MARKER::bytes) == 12, "a grain marker is 12 bytes");

// Grains inflated on demand; the last one is kept, since the device road's reads overlap.
class grain_inflater {
public:
    // Built with zlib: compressed grains can be read.
    static bool offered();
    // Grain `index`, of `grain_bytes` bytes from virtual sector `sector`, inflated from the marker at
    // `marker_at` of `source`, whose bytes end at `source_size`; null when it doesn't inflate to it.
    const uint8_t* grain(image_reader& source, uint64_t source_size, uint64_t marker_at, uint64_t index,
                         uint64_t sector, uint64_t grain_bytes);
    void clear();

private:
    std::vector<uint8_t> inflated_;
    uint64_t index_ = UINT64_MAX;
    bool good_ = false;
};
