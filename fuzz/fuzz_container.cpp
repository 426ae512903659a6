// The container outside its entries: the directory table applied to the scan's rows, and the
// walk over the HASH chain with the search of the gaps between the entries it names.
#include <cstdint>
#include <vector>

#include "cache/hv_container.h"
#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    cmd_opts opts;
    const uint32_t length = static_cast<uint32_t>(size);

    std::vector<uint8_t> scanned(data, data + size);
    result_map rows;
    scan_buffer(rows, opts, scanned.data(), length, 0, 0);
    INDEX_DAT_RECORD names;
    read_directory_table(names, rows, scanned.data(), length);

    std::vector<uint8_t> walked(data, data + size);
    INDEX_DAT_RECORD record;
    record.walk_hash_tables(walked.data(), length, true);
    INDEX_DAT_RECORD no_gaps;
    std::vector<uint8_t> again(data, data + size);
    no_gaps.walk_hash_tables(again.data(), length, false);
    return 0;
}
