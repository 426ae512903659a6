// Checked little-endian reads over untrusted bytes: every decoder goes through these,
// so no read can pass the end of the buffer it was given.
#pragma once
#include <cstddef>
#include <cstdint>

namespace hv {

// True when [offset, offset + length) lies inside a buffer of `size` bytes (no overflow).
inline bool fits(size_t size, size_t offset, size_t length) {
    return offset <= size && length <= size - offset;
}

// Reads at `offset`; a read that would pass `size` answers 0.
inline uint16_t le16(const uint8_t* p, size_t size, size_t offset) {
    if (!fits(size, offset, 2)) return 0;
    p += offset;
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

inline uint32_t le32(const uint8_t* p, size_t size, size_t offset) {
    if (!fits(size, offset, 4)) return 0;
    p += offset;
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline uint64_t le64(const uint8_t* p, size_t size, size_t offset) {
    if (!fits(size, offset, 8)) return 0;
    return static_cast<uint64_t>(le32(p, size, offset)) |
           (static_cast<uint64_t>(le32(p, size, offset + 4)) << 32);
}

inline uint8_t byte_at(const uint8_t* p, size_t size, size_t offset) {
    return offset < size ? p[offset] : 0;
}

}  // namespace hv
