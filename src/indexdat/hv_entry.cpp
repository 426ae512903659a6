#include "indexdat/hv_entry.h"

#include <algorithm>
#include <cstring>

#include "entries/hv_entry_text.h"
#include "foundation/hv_string.h"
#include "storage/hv_text_conversion.h"

namespace {

constexpr size_t no_terminator = ~size_t(0);
constexpr uint32_t head_size = 8;  // signature and block count

// The bytes of an entry as its decoding reads them: a text or data that starts inside the first 8 bytes
// sees the block count rewrite.
class entry_bytes {
public:
    entry_bytes(const uint8_t* bytes, uint32_t size) : bytes_(bytes), size_(size) {
        std::memcpy(head_, bytes, head_size);
    }
    void rewrite_block_count(uint32_t blocks) {
        const block_count_rewrite rewrite{0, blocks};
        for (uint32_t i = 0; i < head_size; ++i) head_[i] = rewrite.seen(i, head_[i]);
    }
    const uint8_t* at(uint32_t from) const { return bytes_ + from; }

    // Length of the NUL-terminated text at `from`, looked for in no more than `limit` bytes;
    // no_terminator when no NUL stands there.
    size_t text_length(uint32_t from, size_t limit) const {
        size_t done = 0;
        for (; from + done < head_size && done < limit; ++done) {
            if (head_[from + done] == 0) return done;
        }
        const void* nul = std::memchr(bytes_ + from + done, 0, limit - done);
        return nul ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - (bytes_ + from)) : no_terminator;
    }
    void assign(std::string& out, uint32_t from, size_t length) const {
        out.clear();
        for (; from < head_size && length > 0; ++from, --length) out.push_back(static_cast<char>(head_[from]));
        out.append(reinterpret_cast<const char*>(bytes_ + from), length);
    }
    // The text at `from` up to its NUL or the buffer's end, whichever comes first.
    void assign_text(std::string& out, uint32_t from) const {
        const size_t limit = size_ - from;
        const size_t length = text_length(from, limit);
        assign(out, from, length == no_terminator ? limit : length);
    }

private:
    const uint8_t* bytes_;
    uint32_t size_;
    uint8_t head_[head_size];
};

// The file name, when its offset lies inside the entry; 1, as the entry stands whether or not it has one.
template <typename Clean>
int read_file_name(URL_OR_LEAK_ACTIVITY_RECORD& record, const entry_bytes& bytes, uint32_t remaining,
                   const Clean& clean) {
    const uint32_t f = record.header.file_name_offset();
    if (f != 0 && f < remaining) {
        bytes.assign_text(record.file_name, f);
        clean(record.file_name);
    }
    return 1;
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
    block_count_rewrite = 0;
}

URL_OR_LEAK_ACTIVITY_RECORD::URL_OR_LEAK_ACTIVITY_RECORD(const uint8_t* buffer, uint32_t offset, uint32_t size) {
    decode_url_or_leak(*this, buffer, offset, size);
}

void REDR_ACTIVITY_RECORD::clear() {
    std::memset(bytes, 0, size);
    url.clear();
    valid = false;
    offset = 0;
}

REDR_ACTIVITY_RECORD::REDR_ACTIVITY_RECORD(const uint8_t* buffer, uint64_t offset, uint32_t size) {
    decode_redr(*this, buffer, offset, size);
}

// The same as: "," to ";", trim, CR to " ", LF to ";". Trimming first changes nothing (";" and ","
// are no blanks), and lets the three replacements share one pass: this runs on every field of every row.
int decode_url_or_leak(URL_OR_LEAK_ACTIVITY_RECORD& record, const uint8_t* buffer, uint32_t offset,
                       uint32_t size, bool whole) {
    using H = URL_HEADER;
    record.clear();
    record.offset = offset;
    if (!buffer || size < uint64_t(offset) + H::size) return 0;
    const uint8_t* entry = buffer + offset;
    const uint32_t in_buffer = size - offset;  // bytes up to the buffer's end: no text read passes it
    uint32_t signature = hv::le32(entry, in_buffer, H::at_signature);
    if (signature != signature_url && signature != signature_leak) return 0;
    entry_bytes bytes(entry, in_buffer);
    uint32_t remaining = in_buffer;
    std::memcpy(record.header.bytes, entry, H::size);
    record.valid = true;

    // The file's block count isn't trusted beyond the next signature: from here on that distance
    // bounds every offset of the entry. The record keeps the file's value, which is what the block
    // limit of decode_entry_at tests.
    uint32_t next = find_next_signature(entry, remaining);
    if (next != no_signature) {
        record.block_count_rewrite = next / entry_block_size;
        if (!whole) bytes.rewrite_block_count(record.block_count_rewrite);
        remaining = next;
    }

    // Whole, a field keeps its bytes: no replacements, and a LEAK entry gives what it stores too.
    auto clean = [whole](std::string& text) {
        if (!whole) clean_field(text);
    };
    // The lossless decoding never rejects an entry that the default decoding accepts: where a field
    // can't be read (an offset unset or outside the entry, no data), that field stays empty and the row
    // stays. The default decoding rejects a "URL " entry without a URL or data, as it always has.
    bool read_data = false;
    if (signature != signature_leak || whole) {
        uint32_t u = record.header.url_offset();
        if (u == 0 || u >= remaining) return whole ? read_file_name(record, bytes, remaining, clean) : 0;
        // A text longer than the entry is cut at its end, so no NUL need be looked for past it.
        size_t length = bytes.text_length(u, std::min<size_t>(in_buffer - u, size_t{remaining} - u + 1));
        if (length == no_terminator || length > remaining - u) {
            bytes.assign(record.url, u, remaining - u);
        } else {
            bytes.assign(record.url, u, length);
            read_data = true;
        }
        clean(record.url);
    }
    // A LEAK row has no URL, header or user: that is its form.

    read_file_name(record, bytes, remaining, clean);
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
    bytes.assign(record.raw_data, start, length);
    if (record.raw_data.empty()) return whole ? 1 : 0;

    size_t p = record.raw_data.find(user_mark, 0, user_mark_size);
    if (p != std::string::npos) {
        length = static_cast<uint32_t>(p);  // the header text ends where the user mark begins
        size_t from = p + user_mark_size;
        size_t nul = record.raw_data.find('\0', p);
        record.user.assign(record.raw_data, from, nul == std::string::npos ? std::string::npos : nul - from);
        trim_whitespace(record.user);
    }
    if (whole) {
        // The stored header up to its NUL, its line ends kept; only the blank lines around it go.
        record.http_header.assign(record.raw_data, 0, std::min<size_t>(length, record.raw_data.find('\0')));
        trim_whitespace(record.http_header);
        return 1;
    }
    copy_printable_text(record.http_header, reinterpret_cast<const uint8_t*>(record.raw_data.data()),
                        static_cast<int>(length), false, ' ');
    clean_field(record.http_header);
    if (length == 0) {
        // Data that begins with the user mark: "-" in both columns, the user found above dropped.
        record.http_header = "-";
        record.user = "-";
    }
    return 1;
}

int decode_redr(REDR_ACTIVITY_RECORD& record, const uint8_t* buffer, uint64_t offset, uint32_t size, bool whole) {
    using R = REDR_ACTIVITY_RECORD;
    record.clear();
    if (!buffer || size < offset + R::size) return 0;
    const uint8_t* entry = buffer + offset;
    if (hv::le32(entry, R::size, R::at_signature) != signature_redr) return 0;
    std::memcpy(record.bytes, entry, R::size);
    record.valid = true;
    entry_bytes(entry, static_cast<uint32_t>(size - offset)).assign_text(record.url, R::at_url);
    if (!whole) {
        replace_char(record.url, ',', '_', false);
        trim_whitespace(record.url);
    }
    record.offset = offset;
    return 1;
}

int decode_entry_at(activity_record& row, entry_decoder& decoder, const uint8_t* entry, uint32_t remaining,
                    uint64_t position) {
    URL_OR_LEAK_ACTIVITY_RECORD& record = decoder.url_record;
    if (decode_url_or_leak(record, entry, 0, remaining, decoder.whole)) {
        if (record.header.block_count() >= max_entry_blocks) return 0;
        record.offset = position;
        fill_activity_from_url_or_leak(row, std::move(record), decoder.cache_category, decoder.source, decoder.whole);
        return 1;
    }
    // A failed URL entry isn't retried as anything else: decode_redr tests the signature.
    REDR_ACTIVITY_RECORD& redr = decoder.redr_record;
    if (!decode_redr(redr, entry, 0, remaining, decoder.whole) || redr.block_count() >= max_entry_blocks) return 0;
    redr.offset = position;
    fill_activity_from_redr(row, std::move(redr), decoder.cache_category, decoder.source);
    return 1;
}

int classify_container_path(const std::string& path, uint32_t& category) {
    if (path.empty()) return 0;
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
        if (path.find(w.word) != std::string::npos) {
            category = w.kind;
            return 1;
        }
    }
    category = cache_unknown;
    return 0;
}

void fill_activity_from_url_or_leak(activity_record& row, URL_OR_LEAK_ACTIVITY_RECORD&& record, uint32_t category,
                                    const std::string& source, bool whole) {
    const URL_HEADER& h = record.header;
    row.reset();
    std::memcpy(row.signature.data(), h.bytes + URL_HEADER::at_signature, row.signature.size());
    row.cache_category = category;
    if (row.cache_category == cache_daily_history) row.is_local_time = true;
    row.offset = record.offset;
    row.file_name.swap(record.file_name);
    row.file_size = h.file_size();
    row.source_file = source;
    row.is_leak = h.is_leak();
    row.flags = h.flags();
    row.count = h.count() == unset_u32 ? 0 : h.count();
    row.user.swap(record.user);
    row.url.swap(record.url);
    // Meant for history URLs that open with a date range; kept exactly as it tests (";" at 17).
    if (row.url.size() >= 20 && row.url[0] == ':' && row.url[17] == ';' && row.url[18] == ' ')
        row.is_local_time = true;
    // The lossless report reads the range as the URL stores it, ":YYYYMMDDYYYYMMDD:".
    if (whole && starts_with_date_range(row.url)) row.is_local_time = true;
    row.http_header.swap(record.http_header);
    if (h.last_modified() != unset_u64) row.last_modified = h.last_modified();
    if (h.last_access() != unset_u64) row.last_access = h.last_access();
    if (h.expires().date_word != unset_dos_date) row.expires = h.expires();
    if (h.last_sync().date_word != unset_dos_date) row.last_sync = h.last_sync();
    if (h.second_stamp().date_word != unset_dos_date) row.second_stamp = h.second_stamp();
    row.directory_index = h.directory_index();
}

void fill_activity_from_redr(activity_record& row, REDR_ACTIVITY_RECORD&& record, uint32_t category,
                             const std::string& source) {
    row.reset();
    std::memcpy(row.signature.data(), record.bytes + REDR_ACTIVITY_RECORD::at_signature, row.signature.size());
    row.cache_category = category;
    row.offset = record.offset;
    row.source_file = source;
    row.url.swap(record.url);
    row.is_redr = true;
}

uint32_t find_next_signature(const uint8_t* from, uint64_t size) {
    if (!from || size < entry_block_size) return no_signature;
    // Position 0 is never looked at: called on an entry, this finds the one behind it.
    for (uint64_t p = entry_block_size; p < size - 4; p += entry_block_size) {
        uint32_t word = hv::le32(from, size, p);
        if (word == signature_url || word == signature_leak || word == signature_redr)
            return p < no_signature ? static_cast<uint32_t>(p) : no_signature;
    }
    return no_signature;
}
