// The E01 road over any bytes in memory: the input is cut into segment files at "EWFNEXT" and opened as
// a set through libewf, from memory. libewf's parser is not ours; what is fuzzed is the handling of its
// answers: the faults of a set and the segment named, sizes, chunks lost, reads past the end, and the
// device road over the media. Each segment's closing section is also looked for without libewf.
#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "driver/hv_big_file.h"
#include "indexdat/hv_scan.h"
#include "report/hv_report.h"
#include "storage/hv_ewf.h"
#include "storage/hv_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string whole(reinterpret_cast<const char*>(data), size);
    std::vector<std::pair<const uint8_t*, size_t>> segments;
    for (size_t at = 0;;) {
        const size_t cut = whole.find("EWFNEXT", at);
        const size_t end = cut == std::string::npos ? size : cut;
        segments.emplace_back(data + at, end - at);
        memory_image segment(data + at, end - at);
        read_segment_end(segment);
        if (cut == std::string::npos) break;
        at = cut + 7;
    }

    ewf_image image;
    std::string segment;
    if (image.open_memory(segments, segment) != ewf_fault::none) return 0;
    std::vector<uint8_t> buffer(70000);
    const uint64_t media = image.size();
    for (uint64_t at : {uint64_t{0}, media / 2, media - std::min<uint64_t>(media, 100), media, media + 4096}) {
        image.read(at, buffer.data(), buffer.size());
        for (uint64_t offset = 0, length = 0; image.next_lost_range(offset, length);) {
        }
    }
    // A media of more than a few MiB would take the road long to walk, all of it zeros.
    if (media > (uint64_t{16} << 20)) return 0;
    std::ostringstream out;
    rows_writer report(out, report_settings());
    input_scan scan(report, false);
    input_ref input;
    input.road = road_kind::ewf;
    input.path = "fuzz.E01";
    scan.begin_input(input);
    scan_device(scan, image, true);
    scan.end_input();
    return 0;
}
