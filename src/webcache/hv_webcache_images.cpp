#include "webcache/hv_webcache_images.h"

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "foundation/hv_bytes.h"

namespace {

constexpr size_t header_size = ESE_CONTAINER_RECORD::header_size;

}  // namespace

size_t next_container_header(const uint8_t* bytes, size_t size, size_t from) {
    // Sixteen positions at a time for the header's first two bytes, as rare together as one in 65536
    // random pairs: a scan at memory speed, whatever the bytes. The bytes past the last block, one by one.
#ifdef __SSE2__
    const __m128i first = _mm_set1_epi8(static_cast<char>(ESE_CONTAINER_RECORD::signature[0]));
    const __m128i second = _mm_set1_epi8(static_cast<char>(ESE_CONTAINER_RECORD::signature[1]));
    for (; from + 17 <= size; from += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + from));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + from + 1));
        unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, first), _mm_cmpeq_epi8(b, second))));
        for (; mask != 0; mask &= mask - 1) {
            const size_t at = from + static_cast<size_t>(__builtin_ctz(mask));
            if (at + header_size <= size && starts_container_record(bytes + at)) return at;
        }
    }
#endif
    for (; from + header_size <= size; ++from)
        if (starts_container_record(bytes + from)) return from;
    return size;
}

namespace {

bool decode_image(const uint8_t* bytes, size_t offset, size_t size, const ese_long_values* long_values,
                  webcache_record_state state, webcache_image& image, ese_record_notes& notes) {
    if (!decode_container_record(bytes + offset, size, long_values, image.record, notes)) return false;
    image.state = state;
    image.offset = offset;
    image.container_id = hv::le64(bytes + offset, size, ESE_CONTAINER_RECORD::at_container_id);
    return true;
}

}  // namespace

const char* webcache_record_state_name(webcache_record_state state) {
    switch (state) {
        case webcache_record_state::live: return "live";
        case webcache_record_state::deleted_tag: return "deleted tag";
        case webcache_record_state::free_space: return "free space";
        case webcache_record_state::outside_tree: return "outside the tree";
        case webcache_record_state::carved: break;
    }
    return "carved";
}

void decode_database_page(const uint8_t* page, size_t page_size, bool in_table, const ese_long_values* long_values,
                          std::vector<webcache_image>& out) {
    out.clear();
    webcache_image image;
    ese_record_notes notes;
    if (in_table) {
        std::vector<ese_page_image> found;
        find_page_images(page, page_size, found);
        for (const ese_page_image& at : found) {
            const webcache_record_state state = at.state == ese_image_state::live          ? webcache_record_state::live
                                                : at.state == ese_image_state::deleted_tag ? webcache_record_state::deleted_tag
                                                                                           : webcache_record_state::free_space;
            if (decode_image(page, at.offset, at.size, long_values, state, image, notes)) out.push_back(image);
        }
        return;
    }
    for (size_t at = next_container_header(page, page_size, 0); at < page_size;) {
        const size_t next = next_container_header(page, page_size, at + 1);
        if (decode_image(page, at, next - at, long_values, webcache_record_state::outside_tree, image, notes))
            out.push_back(image);
        at = next;
    }
}

bool carve_container_record(const uint8_t* bytes, size_t size, size_t at, webcache_image& image) {
    ese_record_notes notes;
    const size_t end = std::min({next_container_header(bytes, size, at + 1), size, at + webcache_image_limit});
    return decode_image(bytes, at, end - at, nullptr, webcache_record_state::carved, image, notes) && notes.url_inline;
}

void carve_container_records(const uint8_t* bytes, size_t size, size_t start_limit, std::vector<webcache_image>& out) {
    out.clear();
    webcache_image image;
    const size_t limit = std::min(start_limit, size);
    for (size_t at = next_container_header(bytes, size, 0); at < limit; at = next_container_header(bytes, size, at + 1))
        if (carve_container_record(bytes, size, at, image)) out.push_back(image);
}
