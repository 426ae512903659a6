// Entry decoding and the signature walk over arbitrary bytes, then the report rows of what they
// found: scan_buffer, decode_entry_at at the buffer's first byte (which the walk never looks at),
// write_header_row and write_activity_row.
#include <cstdint>
#include <sstream>
#include <vector>

#include "cache/hv_entry.h"
#include "cache/hv_report.h"
#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    cmd_opts opts;
    opts.current_file = "fuzz/Temporary Internet Files/index.dat";
    classify_container_path(opts);

    // Both decoders rewrite block counts in the buffer they are given: each gets its own copy.
    std::vector<uint8_t> buffer(data, data + size);
    result_map rows;
    const uint32_t overlap = (size & 1) ? 4096 : 0;
    // A base past 2 GiB, as on the device road: row keys and offsets are 64-bit.
    scan_buffer(rows, opts, buffer.data(), static_cast<uint32_t>(buffer.size()), 0x7FFFF000, overlap);

    std::vector<uint8_t> first(data, data + size);
    if (!first.empty()) decode_entry_at(rows, opts, first.data(), static_cast<uint32_t>(first.size()), 0);

    std::ostringstream out;
    write_header_row(out, opts);
    for (const auto& row : rows) write_activity_row(row.second, out, opts);
    return 0;
}
