#include "webcache/hv_ese_page.h"

#include <algorithm>

#include "foundation/hv_bytes.h"
#include "webcache/hv_ese_record.h"

namespace {

using H = ESE_PAGE_HEADER;
using T = ESE_PAGE_TAG;

bool large(size_t page_size) { return page_size >= H::large_page; }
size_t header_size(size_t page_size) { return large(page_size) ? H::large_size : H::small_size; }

size_t tag_count(const uint8_t* page, size_t page_size) {
    const size_t count = hv::le16(page, page_size, H::at_tag_count);
    const size_t room = (page_size - header_size(page_size)) / T::size;
    return std::min(count, room);
}

}  // namespace

bool read_ese_page(const uint8_t* page, size_t page_size, ese_page& out) {
    out = ese_page();
    if (page == nullptr || page_size < 2048 || page_size > 32768) return false;
    out.father_object = hv::le32(page, page_size, H::at_father_object);
    out.flags = hv::le32(page, page_size, H::at_flags);
    if (large(page_size)) out.page_number = hv::le64(page, page_size, H::at_page_number);
    const size_t count = hv::le16(page, page_size, H::at_tag_count);
    return count * T::size <= page_size - header_size(page_size);
}

bool read_ese_tag_span(const uint8_t* page, size_t page_size, size_t tag, size_t& offset, size_t& size) {
    const size_t head = header_size(page_size);
    if (page == nullptr || page_size < head || (tag + 1) * T::size > page_size - head) return false;
    const size_t at = page_size - (tag + 1) * T::size;
    const uint16_t mask = large(page_size) ? T::large_mask : T::small_mask;
    offset = head + (hv::le16(page, page_size, at + T::at_value_offset) & mask);
    size = hv::le16(page, page_size, at + T::at_value_size) & mask;
    // A value may not reach into the tag array.
    return hv::fits(page_size - (tag_count(page, page_size) * T::size), offset, size);
}

bool read_ese_tag(const uint8_t* page, size_t page_size, size_t tag, ese_tag_value& out) {
    out = ese_tag_value();
    size_t offset = 0, size = 0;
    if (!read_ese_tag_span(page, page_size, tag, offset, size) || size < 2) return false;
    const uint16_t raw_offset = hv::le16(page, page_size, page_size - (tag + 1) * T::size + T::at_value_offset);
    const uint16_t first = hv::le16(page, page_size, offset);
    out.flags = large(page_size) ? first >> T::flags_shift : raw_offset >> T::flags_shift;
    size_t key_at = offset + 2;
    size_t key_size = first & T::key_size_mask;
    if (out.flags & T::flag_common_key) {
        // The common key's size first, then the local key's.
        if (size < 4) return false;
        out.common_key_size = first & T::key_size_mask;
        key_size = hv::le16(page, page_size, offset + 2) & T::key_size_mask;
        key_at = offset + 4;
    }
    if (key_at + key_size > offset + size) return false;
    out.offset = offset;
    out.size = size;
    out.key = key_at;
    out.key_size = key_size;
    out.data = key_at + key_size;
    out.data_size = offset + size - out.data;
    return true;
}

void find_page_images(const uint8_t* page, size_t page_size, std::vector<ese_page_image>& out) {
    out.clear();
    ese_page header;
    if (!read_ese_page(page, page_size, header)) return;
    const size_t head = header_size(page_size);
    const size_t count = tag_count(page, page_size);
    const size_t data_end = page_size - count * T::size;
    // The values of the tags (tag 0 is the page's own header): images at their start, no images inside.
    struct span {
        size_t start, end;
    };
    std::vector<span> values;
    for (size_t tag = 1; tag < count; ++tag) {
        ese_tag_value value;
        if (!read_ese_tag(page, page_size, tag, value)) continue;
        values.push_back({value.offset, value.offset + value.size});
        if (value.data_size >= ESE_CONTAINER_RECORD::header_size && starts_container_record(page + value.data))
            out.push_back({value.data, value.data_size,
                           (value.flags & T::flag_deleted) ? ese_image_state::deleted_tag : ese_image_state::live});
    }
    // The rest of the data area: a record header there is an image left behind. How many values cover
    // each byte, by a running sum, so hostile overlapping tags cost no more than the page.
    std::vector<int> edges(page_size + 1, 0);
    for (const span& v : values) {
        ++edges[v.start];
        --edges[v.end];
    }
    int covering = 0;
    for (size_t at = 0; at + ESE_CONTAINER_RECORD::header_size <= data_end; ++at) {
        covering += edges[at];
        if (at < head || covering > 0 || !starts_container_record(page + at)) continue;
        out.push_back({at, data_end - at, ese_image_state::free_space});
    }
    std::sort(out.begin(), out.end(),
              [](const ese_page_image& a, const ese_page_image& b) { return a.offset < b.offset; });
    std::vector<size_t> starts;
    for (const span& v : values) starts.push_back(v.start);
    std::sort(starts.begin(), starts.end());
    // An image in free space runs at most to the next image or value.
    for (size_t i = 0; i < out.size(); ++i) {
        if (out[i].state != ese_image_state::free_space) continue;
        size_t end = out[i].offset + out[i].size;
        if (i + 1 < out.size()) end = std::min(end, out[i + 1].offset);
        auto next_value = std::upper_bound(starts.begin(), starts.end(), out[i].offset);
        if (next_value != starts.end()) end = std::min(end, *next_value);
        out[i].size = end - out[i].offset;
    }
}
