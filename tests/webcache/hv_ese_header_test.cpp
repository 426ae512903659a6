#include "webcache/hv_ese_header.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

// A header with the signature and `page_size`, `size` bytes long.
std::vector<uint8_t> header_bytes(uint32_t page_size, size_t size = ESE_FILE_HEADER::size) {
    std::vector<uint8_t> bytes(size);
    auto put32 = [&bytes](size_t at, uint32_t value) {
        for (size_t i = 0; i < 4 && at + i < bytes.size(); ++i) bytes[at + i] = static_cast<uint8_t>(value >> (8 * i));
    };
    put32(ESE_FILE_HEADER::at_signature, ESE_FILE_HEADER::signature_value);
    put32(ESE_FILE_HEADER::at_page_size, page_size);
    return bytes;
}

}  // namespace

// Known by the signature EF CD AB 89 at 4 and a page size the format knows; nothing else is asked.
TEST(EseHeader, KnownByItsBytes) {
    const struct {
        uint32_t page_size;
        size_t size;
        bool database;
    } cases[] = {
        {2048, 240, true}, {4096, 240, true}, {8192, 240, true}, {16384, 240, true}, {32768, 4096, true},
        {0, 240, false},   {1024, 240, false}, {65536, 240, false}, {32769, 240, false},
        {32768, 239, false},  // too short to hold the page size
    };
    for (const auto& c : cases) {
        const std::vector<uint8_t> bytes = header_bytes(c.page_size, c.size);
        EXPECT_EQ(looks_like_ese_database(bytes.data(), bytes.size()), c.database) << c.page_size << " " << c.size;
    }
    std::vector<uint8_t> bytes = header_bytes(32768);
    const uint8_t stored[] = {0xEF, 0xCD, 0xAB, 0x89};
    EXPECT_EQ(std::memcmp(bytes.data() + 4, stored, 4), 0);
    bytes[4] ^= 1;
    EXPECT_FALSE(looks_like_ese_database(bytes.data(), bytes.size()));
    EXPECT_FALSE(looks_like_ese_database(nullptr, 0));
}
