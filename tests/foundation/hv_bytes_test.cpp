#include "foundation/hv_bytes.h"

#include <gtest/gtest.h>

TEST(LittleEndian, ReadsStayInsideTheBuffer) {
    const uint8_t b[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    EXPECT_EQ(hv::le16(b, 8, 0), 0x0201);
    EXPECT_EQ(hv::le32(b, 8, 4), 0x08070605u);
    EXPECT_EQ(hv::le64(b, 8, 0), 0x0807060504030201ull);
    EXPECT_EQ(hv::le32(b, 8, 5), 0u);                 // would pass the end
    EXPECT_EQ(hv::le16(b, 8, SIZE_MAX), 0);          // offset overflow
}
