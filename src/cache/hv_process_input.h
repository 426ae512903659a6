// The run of one input from open to report: the file road (read whole up to 16 MiB, in chunks
// beyond), the device and VMDK roads, and the E01 road.
#pragma once
#include <cstdint>
#include <ostream>

class cmd_opts;
class image_reader;
class input_scan;

// A file of this size or less is read whole; a larger one goes in chunks.
constexpr uint64_t whole_file_limit = 16777216;

// The file road over any reader: read whole up to 16 MiB, in chunks beyond. False, with nothing
// written, when there was nothing to scan (an empty input, or one that couldn't be read); otherwise
// `result` is process_input's answer.
bool scan_file(input_scan& scan, cmd_opts& opts, image_reader& file, bool& result);

// One file, as -f reads it: a WebCache database through its tables, anything else through scan_file.
// The image road hands each file it finds here too.
bool scan_one_file(input_scan& scan, cmd_opts& opts, image_reader& file, bool& result);

// Parses the input named by opts (current_file, partition or vmdk_files) and writes its rows,
// the header row first when it is still pending. True when the input gave rows (on the big-file
// and device roads: when the input could be read).
bool process_input(input_scan& scan, cmd_opts& opts);
// The same for a run of one input.
bool process_input(std::ostream& out, cmd_opts& opts);
