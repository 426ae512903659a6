// Writes test inputs byte by byte: little-endian fields at named offsets.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

namespace testsupport {

// A growable byte image; writes past the end extend it with zeros.
class byte_image {
public:
    explicit byte_image(size_t size = 0) : bytes_(size, '\0') {}
    byte_image& u8(size_t offset, uint8_t v);
    byte_image& u16(size_t offset, uint16_t v);
    byte_image& u32(size_t offset, uint32_t v);
    byte_image& u64(size_t offset, uint64_t v);
    byte_image& text(size_t offset, const std::string& s);  // no terminator added
    size_t size() const { return bytes_.size(); }
    void resize(size_t n) { bytes_.resize(n, '\0'); }
    const std::string& bytes() const { return bytes_; }
    std::string& bytes() { return bytes_; }

private:
    void reserve_to(size_t end);
    std::string bytes_;
};

}  // namespace testsupport
