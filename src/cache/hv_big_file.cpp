#include "cache/hv_big_file.h"

#include <new>
#include <vector>

#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_console.h"
#include "storage/hv_fileio.h"
#include "storage/hv_raw_disk.h"

// Why no entry is lost on either road: consecutive buffers share `overlap` (4096) bytes and a
// buffer's strides (28672, 61440) are multiples of 128, so every position of the 128-byte grid
// is looked at in some buffer. An entry cut by a buffer's end is shorter than 10 blocks, so it
// starts in the shared bytes and is met again, whole, in the next buffer. Rows are keyed by
// position and the first decoding wins: a cut entry that already gave a (poorer) row keeps it.

bool scan_big_file(result_map& rows, cmd_opts& opts) {
    // A file object of its own: the caller's stays open during the scan.
    uni::fileio file(opts.current_file, false, true, 0);
    if (!file.is_open()) return false;
    opts.result_map = &rows;
    file.process_chunks(big_file_chunk, &opts, big_file_chunk_size, big_file_chunk_overlap, 0);
    clear_status_line(opts);
    file.close();
    return true;
}

uint32_t big_file_chunk(uni::fileio* file, void* context, uint8_t* chunk, uint32_t length, uint32_t overlap,
                        uint64_t offset) {
    cmd_opts* opts = static_cast<cmd_opts*>(context);
    if (opts == nullptr || opts->result_map == nullptr) return 0xFFFFFFFFu;
    scan_buffer(*opts->result_map, *opts, chunk, length, offset, overlap);
    if (opts->show_progress && offset % progress_divisor == 0 && file != nullptr) {
        uint64_t total = file->get_size();
        if (total != 0) {
            double widened = static_cast<float>(offset);
            print_status("percent: %d", static_cast<int>(widened * 100.0 / static_cast<double>(total)));
        }
    }
    return 0;
}

bool scan_device_input(result_map& rows, cmd_opts& opts) {
    if (!opts.partition.empty()) {
        RAW_DISK_IO disk(opts.partition, false, false, true, 1);
        return disk.valid() && scan_device(rows, opts, disk);
    }
    if (!opts.vmdk_files.empty()) {
        RAW_DISK_IO disk(opts.vmdk_files, false, false);
        return disk.valid() && scan_device(rows, opts, disk);
    }
    return false;
}

bool scan_device(result_map& rows, cmd_opts& opts, RAW_DISK_IO& disk) {
    if (!disk.valid()) return false;
    std::vector<uint8_t> buffer;
    try {
        buffer.resize(device_read_size);
    } catch (const std::bad_alloc&) {
        return false;
    }
    const int64_t total = static_cast<int64_t>(disk.get_size());
    if (total < 1) {
        print_error("success\n");
        return true;
    }
    int64_t position = 0;
    uint32_t overlap = device_read_overlap;
    while (position < total) {
        // No test of show_progress here: -quiet doesn't silence this road.
        if (position % progress_divisor == 0) {
            print_status("percent done: %d",
                         static_cast<int>(static_cast<float>(position) * 100.0 / static_cast<float>(total)));
        }
        uint32_t length = device_read_size;
        if (disk.read(buffer.data(), length, static_cast<uint64_t>(position))) {
            if (overlap > length) overlap = 0;  // and so it stays
            scan_buffer(rows, opts, buffer.data(), length, static_cast<uint64_t>(position), overlap);
            position -= overlap;
        }
        // Also after a short or failed read: a read error skips 64 KiB, overlap and all.
        position += device_read_size;
    }
    print_error("success\n");
    return true;
}
