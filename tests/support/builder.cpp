#include "support/builder.h"

namespace testsupport {

void byte_image::reserve_to(size_t end) {
    if (bytes_.size() < end) bytes_.resize(end, '\0');
}

byte_image& byte_image::u8(size_t offset, uint8_t v) {
    reserve_to(offset + 1);
    bytes_[offset] = static_cast<char>(v);
    return *this;
}

byte_image& byte_image::u16(size_t offset, uint16_t v) {
    for (int i = 0; i < 2; ++i) u8(offset + i, static_cast<uint8_t>(v >> (8 * i)));
    return *this;
}

byte_image& byte_image::u32(size_t offset, uint32_t v) {
    for (int i = 0; i < 4; ++i) u8(offset + i, static_cast<uint8_t>(v >> (8 * i)));
    return *this;
}

byte_image& byte_image::u64(size_t offset, uint64_t v) {
    for (int i = 0; i < 8; ++i) u8(offset + i, static_cast<uint8_t>(v >> (8 * i)));
    return *this;
}

byte_image& byte_image::text(size_t offset, const std::string& s) {
    reserve_to(offset + s.size());
    bytes_.replace(offset, s.size(), s);
    return *this;
}

}  // namespace testsupport
