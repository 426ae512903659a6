#include "cache/hv_entry.h"

#include <cstring>

#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_string.h"
#include "storage/hv_fileio.h"

namespace {

constexpr size_t no_terminator = ~size_t(0);

// Length of the NUL-terminated text at `text`, searched no further than `limit` bytes;
// no_terminator when no NUL stands before that.
size_t text_length(const uint8_t* text, size_t limit) {
    const void* nul = std::memchr(text, 0, limit);
    return nul ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - text) : no_terminator;
}

// The text at `text` up to its NUL or the buffer's end, whichever comes first.
void assign_text(std::string& out, const uint8_t* text, size_t limit) {
    size_t length = text_length(text, limit);
    out.assign(reinterpret_cast<const char*>(text), length == no_terminator ? limit : length);
}

void put_le32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

const char user_mark[] = "~U:";
constexpr size_t user_mark_size = sizeof(user_mark) - 1;

}  // namespace

void URL_OR_LEAK_ACTIVITY_RECORD::clear() {
    header.clear();
    url.clear();
    file_name.clear();
    raw_data.clear();
    http_header.clear();
    user.clear();
    valid = false;
    offset = 0;
    from_gap = false;
}

URL_OR_LEAK_ACTIVITY_RECORD::URL_OR_LEAK_ACTIVITY_RECORD(uint8_t* buffer, uint32_t offset, uint32_t size) {
    decode_url_or_leak(*this, buffer, offset, size);
}

void REDR_ACTIVITY_RECORD::clear() {
    std::memset(bytes, 0, size);
    url.clear();
    valid = false;
    offset = 0;
    from_gap = false;
}

REDR_ACTIVITY_RECORD::REDR_ACTIVITY_RECORD(uint8_t* buffer, uint64_t offset, uint32_t size) {
    decode_redr(*this, buffer, offset, size);
}

// The same as: "," to ";", trim, CR to " ", LF to ";". Trimming first changes nothing (";" and ","
// are no blanks), and lets the three replacements share one pass: this runs on every field of every row.
void clean_field(std::string& text) {
    trim_whitespace(text);
    for (char& c : text) {
        const char comma_or_lf = (c == ',' || c == '\n') ? ';' : c;
        c = c == '\r' ? ' ' : comma_or_lf;
    }
}

int decode_url_or_leak(URL_OR_LEAK_ACTIVITY_RECORD& record, uint8_t* buffer, uint32_t offset, uint32_t size) {
    using H = URL_HEADER;
    record.clear();
    record.offset = offset;
    if (!buffer || size < uint64_t(offset) + H::size) return 0;
    uint8_t* entry = buffer + offset;
    const uint32_t in_buffer = size - offset;  // bytes up to the buffer's end: no text read passes it
    uint32_t signature = hv::le32(entry, in_buffer, H::at_signature);
    if (signature != signature_url && signature != signature_leak) return 0;
    uint32_t remaining = in_buffer;
    std::memcpy(record.header.bytes, entry, H::size);
    record.valid = true;

    // The file's block count isn't trusted beyond the next signature: from here on that distance
    // bounds every offset of the entry. The rewrite lands in memory only; the record keeps the
    // file's value, which is what the block limit of decode_entry_at tests.
    uint32_t next = find_next_signature(entry, remaining);
    if (next != no_signature) {
        put_le32(entry + H::at_block_count, next / entry_block_size);
        remaining = next;
    }

    bool read_data = false;
    if (signature != signature_leak) {
        uint32_t u = record.header.url_offset();
        if (u == 0 || u >= remaining) return 0;
        size_t length = text_length(entry + u, in_buffer - u);
        if (length == no_terminator || length > remaining - u) {
            record.url.assign(reinterpret_cast<const char*>(entry + u), remaining - u);
        } else {
            record.url.assign(reinterpret_cast<const char*>(entry + u), length);
            read_data = true;
        }
        clean_field(record.url);
    }
    // A LEAK row has no URL, header or user: that is its form.

    uint32_t f = record.header.file_name_offset();
    if (f != 0 && f < remaining) {
        assign_text(record.file_name, entry + f, in_buffer - f);
        clean_field(record.file_name);
    }
    if (!read_data) return 1;

    uint32_t d = record.header.data_size();
    if (d > remaining - H::size) return 1;
    uint32_t o = record.header.data_offset();
    uint32_t start = H::size;
    uint32_t length = remaining - H::size;  // a bad offset takes all behind the fixed part
    if (o != 0 && o <= remaining) {
        start = o;
        length = d;
    }
    if (uint64_t(start) + length > remaining) return 1;
    record.raw_data.assign(reinterpret_cast<const char*>(entry + start), length);
    if (record.raw_data.empty()) return 0;

    size_t p = record.raw_data.find(user_mark, 0, user_mark_size);
    if (p != std::string::npos) {
        length = static_cast<uint32_t>(p);  // the header text ends where the user mark begins
        size_t from = p + user_mark_size;
        size_t nul = record.raw_data.find('\0', p);
        record.user.assign(record.raw_data, from, nul == std::string::npos ? std::string::npos : nul - from);
        trim_whitespace(record.user);
    }
    copy_printable_text(record.http_header, entry + start, static_cast<int>(length), false, ' ');
    clean_field(record.http_header);
    if (length == 0) {
        // Data that begins with the user mark: "-" in both columns, the user found above dropped.
        record.http_header = "-";
        record.user = "-";
    }
    return 1;
}

int decode_redr(REDR_ACTIVITY_RECORD& record, uint8_t* buffer, uint64_t offset, uint32_t size) {
    using R = REDR_ACTIVITY_RECORD;
    record.clear();
    if (!buffer || size < offset + R::size) return 0;
    const uint8_t* entry = buffer + offset;
    if (hv::le32(entry, R::size, R::at_signature) != signature_redr) return 0;
    std::memcpy(record.bytes, entry, R::size);
    record.valid = true;
    assign_text(record.url, entry + R::at_url, size - offset - R::at_url);
    replace_char(record.url, ',', '_', false);
    trim_whitespace(record.url);
    record.offset = offset;
    return 1;
}

int decode_entry_at(result_map& rows, cmd_opts& opts, uint8_t* entry, uint32_t remaining, uint64_t position) {
    // Reused from entry to entry, so that its texts keep their storage: this runs for every signature.
    static URL_OR_LEAK_ACTIVITY_RECORD& record = *new URL_OR_LEAK_ACTIVITY_RECORD;  // never freed: one run, one thread
    activity_record row;
    if (decode_url_or_leak(record, entry, 0, remaining)) {
        if (record.header.block_count() >= max_entry_blocks) return 0;
        record.offset = position;
        fill_activity_from_url_or_leak(row, record, opts);
    } else {
        // A failed URL entry isn't retried as anything else: decode_redr tests the signature.
        REDR_ACTIVITY_RECORD redr;
        if (!decode_redr(redr, entry, 0, remaining) || redr.block_count() >= max_entry_blocks) return 0;
        redr.offset = position;
        fill_activity_from_redr(row, redr, opts);
    }
    rows.try_emplace(position, std::move(row));  // the first decoding of a position wins
    return 1;
}

int classify_container_path(cmd_opts& opts) {
    if (opts.current_file.empty()) return 0;
    // Plain, case-sensitive substring tests in this order: MSHist folders sit inside History.
    static const struct {
        const char* word;
        uint32_t kind;
    } words[] = {
        {"MSHist", cache_daily_history},
        {"History", cache_history},
        {"Temporary Internet Files", cache_browser},
        {"Cookies", cache_cookies},
        {"Temp", cache_temp},
    };
    for (const auto& w : words) {
        if (opts.current_file.find(w.word) != std::string::npos) {
            opts.cache_category = w.kind;
            return 1;
        }
    }
    opts.cache_category = cache_unknown;
    return 0;
}

std::string build_source_text(const cmd_opts& opts) {
    if (!opts.current_file.empty()) return opts.current_file;
    if (!opts.partition.empty()) return opts.partition + ":\\";
    std::string text;
    if (opts.vmdk_files.empty()) return text;
    std::string name;
    for (const auto& wide : opts.vmdk_files) {
        wide_to_utf8(name, wide);
        text += name;
        text += "; ";
    }
    text.resize(text.size() - 2);
    return text;
}

void fill_activity_from_url_or_leak(activity_record& row, const URL_OR_LEAK_ACTIVITY_RECORD& record,
                                    const cmd_opts& opts) {
    const URL_HEADER& h = record.header;
    row.reset();
    std::memcpy(row.signature.data(), h.bytes + URL_HEADER::at_signature, row.signature.size());
    row.cache_category = opts.cache_category;
    if (row.cache_category == cache_daily_history) row.is_local_time = true;
    row.offset = record.offset;
    row.file_name = record.file_name;
    row.file_size = h.file_size();
    row.source_file = build_source_text(opts);
    row.is_leak = h.is_leak();
    row.flags = h.flags();
    row.count = h.count() == unset_u32 ? 0 : h.count();
    row.user = record.user;
    row.url = record.url;
    // Meant for history URLs that open with a date range; kept exactly as it tests (";" at 17).
    if (row.url.size() >= 20 && row.url[0] == ':' && row.url[17] == ';' && row.url[18] == ' ')
        row.is_local_time = true;
    row.http_header = record.http_header;
    if (h.last_modified() != unset_u64) row.last_modified = h.last_modified();
    if (h.last_access() != unset_u64) row.last_access = h.last_access();
    if (h.expires().date_word != unset_dos_date) row.expires = h.expires();
    if (h.last_sync().date_word != unset_dos_date) row.last_sync = h.last_sync();
    if (h.second_stamp().date_word != unset_dos_date) row.second_stamp = h.second_stamp();
    row.directory_index = h.directory_index();
    row.valid = record.valid;
}

void fill_activity_from_redr(activity_record& row, const REDR_ACTIVITY_RECORD& record, const cmd_opts& opts) {
    row.reset();
    std::memcpy(row.signature.data(), record.bytes + REDR_ACTIVITY_RECORD::at_signature, row.signature.size());
    row.cache_category = opts.cache_category;
    row.offset = record.offset;
    row.source_file = build_source_text(opts);
    row.url = record.url;
    row.valid = record.valid;
    row.is_redr = true;
}
