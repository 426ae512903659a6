// The -image road: an evidence image opened through libtsk. Each cache file its file systems hold (a
// container or a WebCache database) is read as a file, through the file road's own entry point, its rows tied to its path; then the whole
// media goes through the device road, its rows tied to the file (or free space) that holds them, and
// no entry of a file already read comes twice.
#pragma once

class cmd_opts;
class input_scan;
class tsk_image;

// Opens opts.image_file and runs the road; false, with the reason on standard error, when the image
// won't open; true once it is open.
bool scan_image_input(input_scan& scan, cmd_opts& opts);
// The road over an image already open (from memory, for the fuzzers); true when the media scan ran.
bool scan_open_image(input_scan& scan, cmd_opts& opts, tsk_image& image);
