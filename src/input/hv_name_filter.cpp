#include "input/hv_name_filter.h"

#include <cstring>

#include "foundation/hv_string.h"
#include "storage/hv_fileio.h"
#include "storage/hv_text_conversion.h"
#include "storage/hv_file_stats.h"

namespace {

// Removes every '*', restarting the search after each removal: one at the front sets `front`,
// one at the end sets `back`, one in the middle sets nothing.
void remove_stars(std::wstring& text, bool& front, bool& back) {
    for (size_t pos = text.find(L'*'); pos != std::wstring::npos; pos = text.find(L'*')) {
        if (pos == 0) front = true;
        if (pos + 1 == text.size()) back = true;
        text.erase(pos, 1);
    }
}

// Splits at `sep`, trims each piece and drops the empty ones.
std::vector<std::wstring> split_pieces(const std::wstring& text, wchar_t sep) {
    std::vector<std::wstring> pieces;
    size_t start = 0;
    for (;;) {
        size_t end = text.find(sep, start);
        std::wstring piece = text.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start);
        if (trim_whitespace_wide(piece) && !piece.empty()) pieces.push_back(piece);
        if (end == std::wstring::npos) break;
        start = end + 1;
    }
    return pieces;
}

void parse_item(filename_filter& item, const std::wstring& piece) {
    item.raw = piece;
    item.name = piece;
    size_t colon = item.name.find(L':');
    if (colon != std::wstring::npos) {
        item.has_stream = true;
        item.stream = item.name.substr(colon + 1);
        item.name.erase(colon);
        if (item.stream == L"*")
            item.stream_all = true;
        else
            remove_stars(item.stream, item.stream_star_front, item.stream_star_back);
        if (item.name == L"*") {
            item.match_all = true;
            return;
        }
    }
    remove_stars(item.name, item.star_front, item.star_back);
    if (!item.name.empty() && item.name[0] == L'/') item.is_path = true;
}

// A -filter_path item: the pattern names a folder, matched whole up to a '/' or the folder's end.
bool path_item_passes(const filename_filter& item, std::wstring& folder) {
    const std::wstring& pattern = item.name;
    size_t at = folder.find(pattern);
    if (at == std::wstring::npos) {
        wchar_t kind = pattern[0];
        wchar_t other = kind == L'/' ? L'\\' : L'/';
        if (folder.find(other) != std::wstring::npos) {
            for (wchar_t& c : folder)
                if (c == other) c = kind;
            at = folder.find(pattern);
        }
    }
    if (at == std::wstring::npos) return false;
    size_t end = at + pattern.size();
    return end == folder.size() || folder[end] == L'/' || folder[end] == 0;
}

bool stream_passes(const filename_filter& item, const std::wstring& stream) {
    if (!item.has_stream || item.stream_all) return true;
    const std::wstring& s = item.stream;
    if (item.stream_star_front && item.stream_star_back) return stream.find(s) != std::wstring::npos;
    if (item.stream_star_front)
        return stream.size() >= s.size() && stream.compare(stream.size() - s.size(), s.size(), s) == 0;
    if (item.stream_star_back) return stream.compare(0, s.size(), s) == 0;
    return stream == s;
}

// Reads the item's bytes at its offset from the file. An open failure is told through `could_not_open`.
bool signature_passes(const filename_filter& item, const std::wstring& path, bool& could_not_open) {
    uni::fileio file(path, false, true, 0);
    if (!file.is_open()) {
        could_not_open = true;
        return false;
    }
    const uint64_t length = item.signature.size();
    const uint64_t size = file.get_size();
    if (item.signature_offset > size || length > size - item.signature_offset) return false;
    std::vector<uint8_t> bytes;
    if (!file.read_into(bytes, length, item.signature_offset) || bytes.size() != length) return false;
    return std::memcmp(bytes.data(), item.signature.data(), length) == 0;
}

// The window holds when a time lies at or after the start and none lies after the stop.
bool time_window_passes(const time_window& window, const std::wstring& path, file_stats& stats) {
    if (stats.mtime == 0 && (!get_file_stats(stats, path) || stats.mtime == 0)) return false;
    const bool seconds = stats.time_kind == 8;
    if (window.start_valid) {
        if (stats.time_kind != 8 && stats.time_kind != 1) return false;
        uint64_t bound = seconds ? window.start_unix : window.start_filetime;
        if (stats.mtime < bound && stats.birthtime < bound) return false;
    }
    if (window.stop_valid) {
        if (stats.time_kind != 8 && stats.time_kind != 1) return false;
        uint64_t bound = seconds ? window.stop_unix : window.stop_filetime;
        if (stats.mtime > bound || stats.birthtime > bound) return false;
    }
    return true;
}

}  // namespace

bool parse_filter_text(std::vector<filename_filter>& out, std::string& text) {
    to_lower(text);
    std::wstring wide;
    utf8_to_wide(wide, text);

    std::vector<std::wstring> pieces;
    if (wide.find(L'|') != std::wstring::npos)
        pieces = split_pieces(wide, L'|');
    else if (wide.find(L',') != std::wstring::npos)
        pieces = split_pieces(wide, L',');
    if (pieces.empty()) pieces.push_back(wide);

    out.assign(pieces.size(), filename_filter());
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (pieces[i] == L"*") {
            // One '*' anywhere makes the list pass everything.
            out.assign(1, filename_filter());
            out[0].match_all = true;
            out[0].raw = out[0].name = L"*";
            break;
        }
        parse_item(out[i], pieces[i]);
    }
    return !out.empty();
}

bool filter_passes(const time_window& window, bool& could_not_open, const std::wstring& path,
                   const std::vector<filename_filter>& filters, file_stats* stats, bool cut_stream) {
    if (path.empty()) return false;
    could_not_open = false;

    if (stats != nullptr && window.valid() && !time_window_passes(window, path, *stats))
        return false;

    if (filters.empty()) return true;
    if (filters.size() == 1 && filters[0].match_all) return true;

    std::wstring folder, name, stream;
    if (!split_path_wide(path, folder, name)) return false;
    to_lower_wide(name);
    if (cut_stream) {
        size_t colon = name.find(L':');
        if (colon != std::wstring::npos) {
            stream = name.substr(colon + 1);
            name.erase(colon);
        }
    }

    bool folder_lowered = false;
    for (const filename_filter& item : filters) {
        const std::wstring& pattern = item.name;
        if (item.is_path) {
            if (!folder_lowered) {
                to_lower_wide(folder);
                folder_lowered = true;
            }
            if (path_item_passes(item, folder)) return true;
        }
        if (cut_stream && !stream_passes(item, stream)) continue;
        if (item.match_all) return true;

        if (item.star_front && item.star_back) {
            if (name.find(pattern) != std::wstring::npos) return true;
        } else if (item.star_front) {
            // The first occurrence decides: "*.dat" fails on "a.dat.dat".
            size_t at = name.find(pattern);
            if (at != std::wstring::npos && at + pattern.size() == name.size()) return true;
        } else if (item.star_back) {
            if (name.compare(0, pattern.size(), pattern) == 0) return true;
        } else if (!pattern.empty()) {
            if (pattern == name) return true;
        } else if (!item.signature.empty()) {
            if (signature_passes(item, path, could_not_open)) return true;
        }
    }
    return false;
}

bool filter_passes_narrow(const time_window& window, bool& could_not_open, const std::string& path,
                          const std::vector<filename_filter>& filters, file_stats* stats, bool cut_stream) {
    if (path.empty()) return false;
    // No filter: every name passes, and the time window is not looked at.
    if (filters.empty()) return true;
    std::wstring wide;
    utf8_to_wide(wide, path);
    return filter_passes(window, could_not_open, wide, filters, stats, cut_stream);
}

bool filter_passes_plain(bool& could_not_open, const std::wstring& path, const std::vector<filename_filter>& filters,
                         bool cut_stream) {
    return filter_passes(time_window(), could_not_open, path, filters, nullptr, cut_stream);
}
