// Name filters for the list roads (-pipe, -enumdir): -filter items, -filter_sig items and the time window.
// Kept light: the central option record includes this header.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class cmd_params;

// File metadata as the filter test needs it; filled by get_file_stats of the file layer.
struct file_stats {
    std::string path;        // not used by the filter
    uint64_t inode = 0;
    uint64_t size = 0;
    uint64_t mtime = 0;      // 0 until the record is filled
    uint64_t birthtime = 0;
    uint64_t ctime = 0;
    uint64_t atime = 0;
    uint64_t mode = 0;
    int32_t time_kind = 0;   // 8: seconds since 1970 (mtime fits 32 bits), else 16
    bool is_dir = false;     // mode & 0x4000
    std::string name;        // not used by the filter

    void clear() { *this = file_stats(); }
    bool valid() const { return mtime != 0; }
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

// True when the file is to be handled. The time window of `params` is tested only when `stats` is given.
// `could_not_open` is set when a signature item could not read the file.
bool filter_passes(const cmd_params& params, bool& could_not_open, const std::wstring& path,
                   const std::vector<filename_filter>& filters, file_stats* stats, bool cut_stream = false);

// The driver's test per name: false on an empty name, true at once (no time test) for an empty vector.
bool filter_passes_narrow(const cmd_params& params, bool& could_not_open, const std::string& path,
                          const std::vector<filename_filter>& filters, file_stats* stats,
                          bool cut_stream = false);

// The walker's test per file: default params shared by the process, no stats, so never a time test.
bool filter_passes_plain(bool& could_not_open, const std::wstring& path, const std::vector<filename_filter>& filters,
                         bool cut_stream = false);
