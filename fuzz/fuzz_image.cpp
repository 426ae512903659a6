// The -image road over any bytes in memory, as a raw image through libtsk's external image layer:
// the volume and file system walk (libtsk's parsers are not ours; what is fuzzed is our handling of
// what they answer: paths, runs past the media, files that won't read), the containers read as
// files through it, and the media scan with its rows tied to files.
#include <cstdint>
#include <sstream>

#include "driver/hv_image_input.h"
#include "indexdat/hv_scan.h"
#include "report/hv_report.h"
#include "storage/hv_tsk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tsk_image image;
    if (!image.open_memory(data, size)) return 0;
    // Both forms of the report: the lossless one reads containers and ties rows to files.
    report_settings settings;
    settings.complete = size % 2 == 0;
    std::ostringstream out;
    rows_writer report(out, settings);
    input_scan scan(report, settings.complete);
    run_context run{scan, false};
    input_ref input;
    input.road = road_kind::image;
    input.path = "fuzz.raw";
    scan_open_image(run, input, image);
    return 0;
}
