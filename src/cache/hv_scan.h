// The signature walk over a buffer, and the run of one input from open to report.
#pragma once
#include <cstdint>
#include <ostream>

#include "cache/hv_activity.h"

class cmd_opts;

// Answer of find_next_signature when no signature follows.
constexpr uint32_t no_signature = 0xFFFFFFFFu;
// A file of this size or less is read whole; a larger one goes in chunks.
constexpr uint64_t whole_file_limit = 16777216;

// Distance from `from` to the next "URL ", "LEAK" or "REDR" on a 128-byte boundary, never
// looking at `from` itself; no_signature when none lies before the last 4 bytes.
uint32_t find_next_signature(const uint8_t* from, uint64_t size);

// Decodes every signature of `buffer` into `rows` under the key `base` + position.
// True when at least one signature was met, whatever became of it.
bool scan_buffer(result_map& rows, cmd_opts& opts, uint8_t* buffer, uint32_t length, uint64_t base,
                 uint32_t overlap);

// Parses the input named by opts (current_file, partition or vmdk_files) and writes its rows
// to `out`, the header row first when it is still pending. True when the input gave rows
// (on the big-file and device roads: when the input could be read).
bool process_input(std::ostream& out, cmd_opts& opts);
