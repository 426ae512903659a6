// The WebCache record decoder and the page walk over any bytes, without the library: the input is read
// as one record image, as pages of each size the format knows (in a table and outside any), and
// carved whole and in every window the scan could give it.
#include <cstdint>
#include <vector>

#include "webcache/hv_ese_page.h"
#include "webcache/hv_ese_record.h"
#include "webcache/hv_webcache_images.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    webcache_record record;
    ese_record_notes notes;
    const ese_long_values long_values = {{1, std::string("h\0t\0t\0p\0:\0/\0/\0\0\0", 16)}};
    decode_container_record(data, size, &long_values, record, notes);
    std::vector<webcache_image> images;
    std::vector<ese_page_image> found;
    for (size_t page_size : {4096u, 8192u, 16384u, 32768u}) {
        if (size < page_size) {
            std::vector<uint8_t> page(data, data + size);
            page.resize(page_size);
            decode_database_page(page.data(), page_size, true, &long_values, images);
            decode_database_page(page.data(), page_size, false, nullptr, images);
            find_page_images(page.data(), page_size, found);
            continue;
        }
        decode_database_page(data, page_size, true, &long_values, images);
        decode_database_page(data, page_size, false, nullptr, images);
    }
    carve_container_records(data, size, size, images);
    for (size_t cut = 0; cut < size && cut < 64; cut += 7) carve_container_records(data + cut, size - cut, size / 2, images);
    return 0;
}
