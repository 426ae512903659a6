// The -image road over any bytes in memory, as a raw image through libtsk's external image layer:
// the volume and file system walk (libtsk's parsers are not ours; what is fuzzed is our handling of
// what they answer: paths, runs past the media, files that won't read), the containers read as
// files through it, and the media scan with its rows tied to files.
#include <cstdint>
#include <sstream>

#include "cache/hv_image_input.h"
#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "storage/hv_tsk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tsk_image image;
    if (!image.open_memory(data, size)) return 0;
    cmd_opts opts;
    opts.image_file = "fuzz.raw";
    opts.scan_bad_header = true;
    // Both forms of the report: the lossless one reads containers and ties rows to files.
    opts.complete_report = size % 2 == 0;
    std::ostringstream out;
    input_scan scan(out, opts);
    scan_open_image(scan, opts, image);
    return 0;
}
