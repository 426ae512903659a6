// The text of a row, built in place: the report's and the timeline's lines.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// The text of one row, in a buffer that keeps its storage from row to row.
class row_buffer {
public:
    void clear() { size_ = 0; }
    void truncate(size_t size) { size_ = std::min(size_, size); }
    void put(const char* bytes, size_t count) {
        if (count == 0) return;  // an empty field, into a buffer that may have no storage yet
        if (size_ + count > bytes_.size()) grow(count);
        std::memcpy(bytes_.data() + size_, bytes, count);
        size_ += count;
    }
    void put(const std::string& text) { put(text.data(), text.size()); }
    void put(char c) { put(&c, 1); }
    void put_decimal(uint64_t value);
    const char* data() const { return bytes_.data(); }
    size_t size() const { return size_; }

private:
    void grow(size_t more);
    std::vector<char> bytes_;
    size_t size_ = 0;
};
