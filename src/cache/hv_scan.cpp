#include "cache/hv_scan.h"

#include <iostream>
#include <new>
#include <vector>

#include "cache/hv_big_file.h"
#include "cache/hv_container.h"
#include "cache/hv_entry.h"
#include "cache/hv_report.h"
#include "cmdline/hv_cmd_params.h"
#include "storage/hv_fileio.h"

uint32_t find_next_signature(const uint8_t* from, uint64_t size) {
    if (!from || size < entry_block_size) return no_signature;
    // Position 0 is never looked at: called on an entry, this finds the one behind it.
    for (uint64_t p = entry_block_size; p < size - 4; p += entry_block_size) {
        uint32_t word = hv::le32(from, size, p);
        if (word == signature_url || word == signature_leak || word == signature_redr)
            return p < no_signature ? static_cast<uint32_t>(p) : no_signature;
    }
    return no_signature;
}

bool scan_buffer(result_map& rows, cmd_opts& opts, uint8_t* buffer, uint32_t length, uint64_t base,
                 uint32_t overlap) {
    uint32_t remaining = length;
    uint32_t position = 0;
    bool found = false;
    uint32_t step = find_next_signature(buffer, length);
    // Every signature on the 128-byte grid is decoded where it starts, whatever became of the
    // entry before it. An entry that the buffer's end cuts is shorter than 10 blocks, so it starts
    // inside the last `overlap` bytes, which the next buffer holds again: there it is met whole,
    // unless the cut decoding already made a row, which then stands (the first one wins).
    while (step != no_signature && remaining > entry_block_size && step < remaining + overlap) {
        position += step;
        remaining -= step;
        decode_entry_at(rows, opts, buffer + position, remaining, base + position);
        step = find_next_signature(buffer + position, remaining);
        found = true;
    }
    return found;
}

namespace {

// The whole-file road; false when the file couldn't be had in memory.
bool scan_whole_file(result_map& rows, cmd_opts& opts, uni::fileio& file, uint64_t size, bool& result) {
    std::vector<uint8_t> buffer;
    try {
        if (!file.read_into(buffer, size, 0) || buffer.empty()) return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
    file.close();
    classify_container_path(opts);
    INDEX_DAT_RECORD record;
    const uint32_t length = static_cast<uint32_t>(buffer.size());
    if (!opts.scan_bad_header && !read_container_header(record, buffer.data(), length)) return true;
    opts.scan_bad_header = true;
    if (scan_buffer(rows, opts, buffer.data(), length, 0, 0)) {
        read_directory_table(record, rows, buffer.data(), length);
        result = !rows.empty();
    }
    return true;
}

}  // namespace

bool process_input(std::ostream& out, cmd_opts& opts) {
    result_map rows;
    bool result = false;

    if (!opts.current_file.empty()) {
        uni::fileio file(opts.current_file, false, true, 0);
        if (!file.is_open()) {
            std::cout << "prob opening " << opts.current_file << " for read, aborting\n";
            return false;
        }
        uint64_t size = file.get_size();
        if (size == 0) return false;
        if (size > whole_file_limit) {
            result = scan_big_file(rows, opts);
            file.close();
        } else if (!scan_whole_file(rows, opts, file, size, result)) {
            return false;  // no memory or no read: no header row either
        }
    } else if (!opts.partition.empty() || !opts.vmdk_files.empty()) {
        result = scan_device_input(rows, opts);
    }

    // The first input to get here prints the header, whether it gave rows or not.
    if (opts.header_pending && opts.show_rows) {
        opts.header_pending = false;
        write_header_row(out, opts);
    }
    if (result && !rows.empty()) {
        uint64_t number = 0;
        for (const auto& item : rows) {
            if (opts.show_rows) {
                if (opts.show_note_columns) out << ++number << opts.separator;
                write_activity_row(item.second, out, opts);
            } else {
                out << item.second.row_text << std::endl;
            }
        }
    }
    return result;
}
