#include "cache/hv_process_input.h"

#include <iostream>

#include "cache/hv_big_file.h"
#include "cache/hv_container.h"
#include "cache/hv_entry.h"
#include "cache/hv_ewf_input.h"
#include "cache/hv_image_input.h"
#include "cache/hv_scan.h"
#include "cache/hv_webcache_input.h"
#include "cmdline/hv_cmd_params.h"
#include "storage/hv_ewf.h"
#include "storage/hv_image.h"

bool scan_file(input_scan& scan, cmd_opts& opts, image_reader& file, bool& result) {
    result = false;
    const uint64_t size = file.size();
    if (size == 0) return false;
    if (size > whole_file_limit) {
        result = scan_big_file(scan, opts, file);
        return true;
    }
    const uint8_t* bytes = view_or_read(file, 0, static_cast<size_t>(size), scan.buffer);
    if (bytes == nullptr) return false;  // no memory or no read: no header row either
    scan.use_image(file, false);
    classify_container_path(opts);
    const uint32_t length = static_cast<uint32_t>(size);
    INDEX_DAT_RECORD record;
    if (!opts.scan_bad_header && !read_container_header(record, bytes, length)) return true;
    opts.scan_bad_header = true;
    scan.use_directory_table(bytes, length);
    // Read whole, the input's answer is whether it gave rows.
    result = scan.scan_buffer(bytes, length, 0, UINT64_MAX) && scan.rows() != 0;
    return true;
}

bool scan_one_file(input_scan& scan, cmd_opts& opts, image_reader& file, bool& result) {
    return read_database(scan, opts, file, result) || scan_file(scan, opts, file, result);
}

bool process_input(input_scan& scan, cmd_opts& opts) {
    // The image road's inputs (each file read as a file, then the media) begin and end there.
    if (!opts.image_file.empty()) return scan_image_input(scan, opts);
    scan.begin_input();
    bool result = false;
    if (!opts.current_file.empty()) {
        file_image file;
        if (!file.open(opts.current_file)) {
            std::cout << "prob opening " << opts.current_file << " for read, aborting\n";
            return false;
        }
        if (!scan_one_file(scan, opts, file, result)) return false;
    } else if (!opts.partition.empty() || !opts.vmdk_files.empty()) {
        result = scan_device_input(scan, opts);
    } else if (!opts.ewf_file.empty()) {
        ewf_image image;
        if (!open_ewf_input(image, opts.ewf_file)) return false;  // told; no header row, as for -f
        result = scan_device(scan, image, true);
    }
    // The first input to get here prints the header, whether it gave rows or not.
    scan.end_input();
    return result;
}

bool process_input(std::ostream& out, cmd_opts& opts) {
    input_scan scan(out, opts);
    return process_input(scan, opts);
}
