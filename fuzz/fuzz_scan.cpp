// Entry decoding and the signature walk over arbitrary bytes, on each road, to the report rows:
// the file road (whole, or in chunks past 16 MiB: the input's bytes are repeated to get there when
// its first byte says so), the device road, and decode_entry_at at the buffer's first byte (which
// the walk never looks at); some inputs as a timeline. On the file and device roads the lossless decoding
// must make at least as many rows as the default one: it never rejects an entry that the default takes.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "driver/hv_big_file.h"
#include "indexdat/hv_entry.h"
#include "driver/hv_process_input.h"
#include "indexdat/hv_scan.h"
#include "report/hv_report.h"
#include "storage/hv_image.h"

namespace {

// The rows of the file road and of the device road.
struct row_counts {
    uint64_t file = 0, device = 0;
};

row_counts scan_roads(const report_settings& settings, const uint8_t* data, size_t size, bool big_file) {
    row_counts counts;
    std::ostringstream out;
    const auto report = make_report_writer(out, settings);
    input_scan scan(*report, settings.complete);
    run_context run{scan, false};
    input_ref input;
    input.path = "fuzz/Temporary Internet Files/index.dat";
    scan.begin_input(input);
    memory_image memory(data, size);
    bool result = false;
    scan_file(run, input, memory, result);
    scan.end_input();
    counts.file = scan.rows();

    std::vector<uint8_t> big;
    if (big_file) {
        big.resize(whole_file_limit + 1 + (size & 0xFFFF));
        for (size_t at = 0; at < big.size(); at += size) std::copy(data, data + std::min(size, big.size() - at), &big[at]);
        scan.begin_input(input);
        memory_image chunks(big.data(), big.size());
        scan_file(run, input, chunks, result);
        scan.end_input();
    }

    scan.begin_input(input);
    scan_device(scan, memory, (size & 2) != 0);
    scan.end_input();
    counts.device = scan.rows();
    return counts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const report_settings plain;
    // The big-file road costs 16 MiB a time: one input in 16 takes it, with one of the two decodings.
    const bool big_file = size > 0 && (data[0] & 0x0F) == 1;
    const bool big_lossless = size > 0 && (data[0] & 0x10) != 0;
    const row_counts rows = scan_roads(plain, data, size, big_file && !big_lossless);
    // One input in four is read for a timeline, by its last byte: the lossless decoding, its texts into JSON.
    report_settings whole;
    whole.complete = true;
    const uint8_t form = size > 0 ? data[size - 1] & 7 : 0;
    if (form == 1 || form == 2) whole.timeline = form == 1 ? timeline_form::body : timeline_form::jsonl;
    const row_counts lossless = scan_roads(whole, data, size, big_file && big_lossless);
    if (rows.file > lossless.file || rows.device > lossless.device) std::abort();

    if (size != 0) {
        entry_decoder decoder(false);
        activity_record row;
        decode_entry_at(row, decoder, data, static_cast<uint32_t>(size), 0);
    }
    return 0;
}
