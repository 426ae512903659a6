#include "report/hv_row_buffer.h"

#include <charconv>

void row_buffer::grow(size_t more) { bytes_.resize(std::max(bytes_.size() * 2, size_ + more + 1024)); }

void row_buffer::put_decimal(uint64_t value) {
    char digits[24];
    const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    put(digits, static_cast<size_t>(end - digits));
}
