// The run of one input from open to report: the file road (read whole up to 16 MiB, in chunks
// beyond), the device and VMDK roads, the E01 road and the image road.
#pragma once
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "entries/hv_entry_writer.h"

class image_reader;
class input_scan;

// What the roads of a run share: the scan, the settings they read, and what outlasts an input.
struct run_context {
    explicit run_context(input_scan& run_scan, bool progress = true, std::ostream* log = nullptr, unsigned workers = 1)
        : scan(run_scan), show_progress(progress), diags(log), threads(workers) {}

    input_scan& scan;
    bool show_progress = true;
    std::ostream* diags = nullptr;          // the -diags log, or null
    unsigned threads = 1;                   // -threads: workers of the image and list roads
    // A line a run says once, at its first occasion (a build without libesedb meeting a database). A
    // list road's worker hands it on instead: only the run's thread knows which occasion comes first.
    std::function<void(const std::string&)> hand_on_once;
    bool said_once = false;

    void say_once(const std::string& text);
};

// A file of this size or less is read whole; a larger one goes in chunks.
constexpr uint64_t whole_file_limit = 16777216;

// The file road over any reader: read whole up to 16 MiB, in chunks beyond. False, with nothing
// written, when there was nothing to scan (an empty input, or one that couldn't be read); otherwise
// `result` is process_input's answer.
bool scan_file(run_context& run, const input_ref& input, image_reader& file, bool& result);

// One file, as -f reads it: a WebCache database through its tables, anything else through scan_file.
// The image road hands each file it finds here too.
bool scan_one_file(run_context& run, const input_ref& input, image_reader& file, bool& result);

// Parses `input` and writes its rows, the header row first when it is still pending. True when the
// input gave rows (on the big-file and device roads: when the input could be read).
bool process_input(run_context& run, const input_ref& input);
