// Name filters for the list roads (-pipe, -enumdir): -filter items, -filter_sig items and the time window.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "storage/hv_file_stats.h"

// The -cmd_start_time and -cmd_stop_time bounds that a file's times are held against; given by the
// command line (cmd_params::time_bounds).
struct time_window {
    bool start_valid = false;
    uint64_t start_filetime = 0;
    uint32_t start_unix = 0;
    bool stop_valid = false;
    uint64_t stop_filetime = 0;
    uint32_t stop_unix = 0;

    void clear() { *this = time_window(); }
    bool valid() const { return start_valid || stop_valid; }
};

// One item of a -filter list, or one -filter_sig signature.
struct filename_filter {
    uint32_t path_length = 0;
    std::wstring path;              // -filter_path text, stored only
    std::wstring raw;               // the item as given, lowered
    std::wstring name;              // the pattern without its '*'
    std::wstring stream;            // what stands behind the first ':'
    std::vector<uint8_t> signature; // bytes of a -filter_sig item
    uint64_t signature_offset = 0;
    bool is_path = false;           // name starts with '/'
    bool match_all = false;         // the item is '*'
    bool star_front = false;
    bool star_back = false;
    bool has_stream = false;
    bool stream_all = false;
    bool stream_star_front = false;
    bool stream_star_back = false;

    void clear() { *this = filename_filter(); }
    bool valid() const { return match_all || !name.empty() || !signature.empty(); }
};

// Parses a -filter text ("a|b", "a,b", "*.dat", "/path", "name:stream"). The text is lowered in place.
// True when the vector is not empty.
bool parse_filter_text(std::vector<filename_filter>& out, std::string& text);

// True when the file is to be handled. The time window is tested only when `stats` is given.
// `could_not_open` is set when a signature item could not read the file.
bool filter_passes(const time_window& window, bool& could_not_open, const std::wstring& path,
                   const std::vector<filename_filter>& filters, file_stats* stats, bool cut_stream = false);

// The driver's test per name: false on an empty name, true at once (no time test) for an empty vector.
bool filter_passes_narrow(const time_window& window, bool& could_not_open, const std::string& path,
                          const std::vector<filename_filter>& filters, file_stats* stats,
                          bool cut_stream = false);

// The walker's test per file: no stats, so never a time test.
bool filter_passes_plain(bool& could_not_open, const std::wstring& path, const std::vector<filename_filter>& filters,
                         bool cut_stream = false);
