// The -image road: an evidence image opened through libtsk. Each cache file its file systems hold (a
// container or a WebCache database) is read as a file, through the file road's own entry point, its rows tied to its path; then the whole
// media goes through the device road, its rows tied to the file (or free space) that holds them, and
// no entry of a file already read comes twice.
#pragma once

#include "driver/hv_process_input.h"

class tsk_image;

// Opens the image of `input` and runs the road; false, with the reason on standard error, when the
// image won't open; true once it is open.
bool scan_image_input(run_context& run, const input_ref& input);
// The road over an image already open (from memory, for the fuzzers); true when the media scan ran.
bool scan_open_image(run_context& run, const input_ref& input, tsk_image& image);
