#include "driver/hv_process_input.h"

#include "driver/hv_big_file.h"
#include "driver/hv_database_input.h"
#include "driver/hv_ewf_input.h"
#include "driver/hv_image_input.h"
#include "foundation/hv_console.h"
#include "indexdat/hv_entry.h"
#include "indexdat/hv_scan.h"
#include "storage/hv_ewf.h"
#include "storage/hv_image.h"

void run_context::say_once(const std::string& text) {
    if (hand_on_once) {
        hand_on_once(text);
    } else if (!said_once) {
        said_once = true;
        write_console_error(text);
    }
}

bool scan_file(run_context& run, const input_ref& input, image_reader& file, bool& result) {
    result = false;
    const uint64_t size = file.size();
    if (size == 0) return false;
    if (size > whole_file_limit) {
        result = scan_big_file(run, file);
        return true;
    }
    input_scan& scan = run.scan;
    const uint8_t* bytes = view_or_read(file, 0, static_cast<size_t>(size), scan.buffer);
    if (bytes == nullptr) return false;  // no memory or no read: no header row either
    scan.use_image(file, false);
    uint32_t category = scan.cache_category();
    classify_container_path(input.path, category);
    scan.set_cache_category(category);
    const uint32_t length = static_cast<uint32_t>(size);
    scan.use_directory_table(bytes, length);
    // Read whole, the input's answer is whether it gave rows.
    result = scan.scan_buffer(bytes, length, 0, UINT64_MAX) && scan.rows() != 0;
    return true;
}

bool scan_one_file(run_context& run, const input_ref& input, image_reader& file, bool& result) {
    // A file read whole is read once, into the scan's buffer: the look at its header and its scan take
    // the same bytes.
    const uint64_t size = file.size();
    image_reader* bytes_of = &file;
    memory_image whole(nullptr, 0);
    if (size != 0 && size <= whole_file_limit) {
        const uint8_t* bytes = view_or_read(file, 0, static_cast<size_t>(size), run.scan.buffer);
        result = false;
        if (bytes == nullptr) return false;  // no memory or no read: no header row either
        whole = memory_image(bytes, static_cast<size_t>(size));
        bytes_of = &whole;
    }
    return read_database(run, input, *bytes_of, result) || scan_file(run, input, *bytes_of, result);
}

bool process_input(run_context& run, const input_ref& input) {
    // The image road's inputs (each file read as a file, then the media) begin and end there.
    if (input.road == road_kind::image) return scan_image_input(run, input);
    input_scan& scan = run.scan;
    scan.begin_input(input);
    bool result = false;
    switch (input.road) {
        case road_kind::file: {
            file_image file;
            if (!file.open(input.path)) {
                write_console_report("prob opening " + input.path + " for read, aborting\n");
                return false;
            }
            if (!scan_one_file(run, input, file, result)) return false;
            break;
        }
        case road_kind::partition:
        case road_kind::vmdk:
            result = scan_device_input(run, input);
            break;
        case road_kind::ewf: {
            ewf_image image;
            if (!open_ewf_input(image, input.path)) return false;  // told; no header row, as for -f
            result = scan_device(scan, image, true, run.threads, [&input]() -> std::unique_ptr<image_reader> {
                auto another = std::make_unique<ewf_image>();
                std::string segment;
                if (another->open(input.path, segment) != ewf_fault::none) return nullptr;
                return another;
            });
            break;
        }
        case road_kind::image:
            break;
    }
    // The first input to get here prints the header, whether it gave rows or not.
    scan.end_input();
    return result;
}
