#include "report/hv_timeline.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>

#include "foundation/hv_time.h"

namespace {

template <size_t N>
void put_literal(row_buffer& line, const char (&text)[N]) {
    line.put(text, N - 1);
}

template <size_t N>
char* put_literal(char* out, const char (&text)[N]) {
    std::memcpy(out, text, N - 1);
    return out + N - 1;
}

char* put_word(char* out, const char* word) {
    const size_t size = std::strlen(word);
    std::memcpy(out, word, size);
    return out + size;
}

char* put_number(char* out, uint64_t value) { return std::to_chars(out, out + 20, value).ptr; }

char* put_digits(char* out, unsigned value, int width) {
    for (int i = width - 1; i >= 0; --i, value /= 10) out[i] = static_cast<char>('0' + value % 10);
    return out + width;
}

// ---- stamps -------------------------------------------------------------------------------------

// The report shows a stamp when the time value takes it for a date: the same tests, the whole time
// value built only where the zone may decide.
bool filetime_date(uint64_t raw, uint64_t& ticks) {
    ticks = raw;
    return raw != 0 && (hv::plain_date(raw) || hv::time(raw, hv::kind_filetime).valid);
}

bool dos_date(const hv::dos_pair& pair, uint64_t& ticks) {
    tm calendar{};
    if (pair.date_word == 0 || !hv::dos_to_tm(pair, calendar)) return false;
    ticks = hv::tm_to_filetime(&calendar, 0);  // as the time value counts it: 2000 as a common year
    return hv::plain_date(ticks) || hv::time(&pair, true).valid;
}

// The stamp's calendar read as the local time of TZ, with that zone's rules for that date (mktime);
// false when the C library can't place it.
bool local_instant(uint64_t ticks, int64_t& instant) {
    hv::time_fields f;
    hv::filetime_to_fields(ticks, &f);
    tm local{};
    local.tm_year = f.year - 1900;
    local.tm_mon = f.month - 1;
    local.tm_mday = f.day;
    local.tm_hour = f.hour;
    local.tm_min = f.minute;
    local.tm_sec = f.second;
    local.tm_isdst = -1;
    errno = 0;
    const time_t seconds = mktime(&local);
    if (seconds == -1 && errno != 0) return false;  // -1 alone is 1969-12-31 23:59:59 UTC
    instant = static_cast<int64_t>(hv::unix_epoch_ticks) + static_cast<int64_t>(seconds) * 10000000 +
              static_cast<int64_t>(ticks % hv::ticks_per_second);
    return true;
}

// Whole seconds since 1970, toward the earlier second.
int64_t unix_seconds(int64_t ticks) {
    const int64_t since = ticks - static_cast<int64_t>(hv::unix_epoch_ticks);
    const int64_t per_second = static_cast<int64_t>(hv::ticks_per_second);
    return since / per_second - (since % per_second < 0 ? 1 : 0);
}

// ---- text ---------------------------------------------------------------------------------------

// How many of the 16 bytes at `p` are plain before the first that isn't, all sixteen tested at once.
// Plain bytes, which a JSON string holds as they are, are printable ASCII but the quote and the
// backslash.
size_t plain_bytes(const unsigned char* p) {
    typedef unsigned char sixteen __attribute__((vector_size(16)));
    sixteen c;
    std::memcpy(&c, p, sizeof c);
    const auto special = (c < 0x20) | (c > 0x7E) | (c == '"') | (c == '\\');  // 0xFF where a byte isn't plain
    uint64_t half[2];
    std::memcpy(half, &special, sizeof half);
    for (size_t h = 0; h < 2; ++h) {
        if (half[h] == 0) continue;
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
        return 8 * h + static_cast<size_t>(__builtin_clzll(half[h])) / 8;
#else
        return 8 * h + static_cast<size_t>(__builtin_ctzll(half[h])) / 8;
#endif
    }
    return 16;
}

// The length of the well-formed UTF-8 sequence at `p`, or 0: overlong forms, surrogates and code
// points past U+10FFFF are not well formed.
size_t utf8_sequence(const unsigned char* p, size_t size) {
    const unsigned lead = p[0];
    size_t length;
    unsigned low = 0x80, high = 0xBF;  // the second byte's range
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (size < length || p[1] < low || p[1] > high) return 0;
    for (size_t i = 2; i < length; ++i)
        if ((p[i] & 0xC0) != 0x80) return 0;
    return length;
}

// A byte below 0x80 that a JSON string can't hold as it is.
char* put_json_escape(char* out, unsigned char c) {
    static const char hex[] = "0123456789abcdef";
    *out++ = '\\';
    switch (c) {
    case '"': *out++ = '"'; break;
    case '\\': *out++ = '\\'; break;
    case '\n': *out++ = 'n'; break;
    case '\r': *out++ = 'r'; break;
    case '\t': *out++ = 't'; break;
    default:
        out = put_literal(out, "u00");
        *out++ = hex[c >> 4];
        *out++ = hex[c & 15];
    }
    return out;
}

// A body line's field: "|" would end the field and a line end the line. mactime decodes every "%"
// and two hex digits, so "%" itself is escaped too, for the name to come out of it as stored.
void put_body_text(row_buffer& line, const char* text, size_t size) {
    size_t from = 0;
    for (size_t i = 0; i < size; ++i) {
        const char c = text[i];
        if (c != '|' && c != '%' && c != '\r' && c != '\n') continue;
        line.put(text + from, i - from);
        if (c == '|')
            put_literal(line, "%7C");
        else if (c == '%')
            put_literal(line, "%25");
        else
            line.put(' ');
        from = i + 1;
    }
    line.put(text + from, size - from);
}

char* put_json_answer(char* out, int8_t answer) {
    if (answer < 0) return put_literal(out, "null");
    return answer ? put_literal(out, "true") : put_literal(out, "false");
}

}  // namespace

size_t type_size(const activity_record& row) {
    size_t size = row.signature.size();
    while (size > 0 && row.signature[size - 1] == ' ') --size;
    return size;
}

const char* cache_kind_name(uint32_t category) {
    static const char* const kinds[] = {"unknown", "unknown", "history", "daily_history", "browser_cache", "cookies", "temp",
                                        "download"};
    return kinds[category < 8 ? category : 0];
}

const char* const timeline_stamp::descriptions[timeline_stamp::kinds] = {
    "Last Modified", "Last Accessed", "Expires", "Last Checked", "Created", "Post Check"};

size_t shown_stamps(const activity_record& row, timeline_stamp (&out)[timeline_stamp::kinds]) {
    size_t count = 0;
    uint64_t ticks = 0;
    auto add = [&](timeline_stamp::which kind, bool local) { out[count++] = {kind, local, static_cast<int64_t>(ticks)}; };
    if (filetime_date(row.last_modified, ticks)) add(timeline_stamp::last_modified, row.is_local_time);
    // Only a LEAK row falls back on its DOS access stamp, and only when the FILETIME is unset.
    if (row.last_access != 0 ? filetime_date(row.last_access, ticks) : row.is_leak && dos_date(row.second_stamp, ticks))
        add(timeline_stamp::last_access, false);
    if (row.webcache.present) {  // a database record: every stamp a FILETIME, two more of them
        const webcache_row_facts& w = row.webcache;
        if (filetime_date(w.expires, ticks)) add(timeline_stamp::expires, false);
        if (filetime_date(w.last_sync, ticks)) add(timeline_stamp::last_sync, false);
        if (filetime_date(w.created, ticks)) add(timeline_stamp::created, false);
        if (filetime_date(w.post_check, ticks)) add(timeline_stamp::post_check, false);
        return count;
    }
    if (dos_date(row.expires, ticks)) add(timeline_stamp::expires, false);
    if (dos_date(row.last_sync, ticks)) add(timeline_stamp::last_sync, false);
    return count;
}

size_t timeline_stamps(const activity_record& row, timeline_stamp (&out)[timeline_stamp::kinds]) {
    const size_t shown = shown_stamps(row, out);
    size_t count = 0;
    for (size_t i = 0; i < shown; ++i) {
        timeline_stamp stamp = out[i];
        if (stamp.local && !local_instant(static_cast<uint64_t>(stamp.ticks), stamp.ticks)) continue;
        out[count++] = stamp;
    }
    return count;
}

char* put_iso_8601(char* out, int64_t ticks, bool utc) {
    hv::time_fields f;
    hv::filetime_to_fields(static_cast<uint64_t>(ticks), &f);
    out = put_digits(out, f.year, 4);
    *out++ = '-';
    out = put_digits(out, f.month, 2);
    *out++ = '-';
    out = put_digits(out, f.day, 2);
    *out++ = 'T';
    out = put_digits(out, f.hour, 2);
    *out++ = ':';
    out = put_digits(out, f.minute, 2);
    *out++ = ':';
    out = put_digits(out, f.second, 2);
    *out++ = '.';
    out = put_digits(out, f.milliseconds, 3);
    if (utc) *out++ = 'Z';
    return out;
}

char* put_json_string(char* out, const char* text, size_t size) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
    *out++ = '"';
    size_t i = 0;
    while (i < size) {
        // Plain bytes go sixteen at a time, up to the first that isn't.
        size_t plain = 16;
        for (; plain == 16 && i + 16 <= size; i += plain, out += plain) {
            plain = plain_bytes(bytes + i);
            std::memcpy(out, bytes + i, 16);
        }
        if (plain == 16) {  // the last few, padded with zeros, which are not plain
            unsigned char last[16] = {};
            std::memcpy(last, bytes + i, size - i);
            plain = std::min(plain_bytes(last), size - i);
            std::memcpy(out, last, plain);
            i += plain;
            out += plain;
        }
        if (i == size) break;
        if (bytes[i] < 0x80) {
            out = put_json_escape(out, bytes[i++]);
            continue;
        }
        const size_t length = utf8_sequence(bytes + i, size - i);
        if (length != 0) {
            std::memcpy(out, bytes + i, length);
            out += length;
            i += length;
        } else {  // the byte as the code point of its value, U+0080 to U+00FF
            *out++ = static_cast<char>(0xC0 | bytes[i] >> 6);
            *out++ = static_cast<char>(0x80 | (bytes[i] & 0x3F));
            ++i;
        }
    }
    *out++ = '"';
    return out;
}

// "IE cache URL: http://... (user U; file F; dir D; count N; allocated yes; in SOURCE at OFFSET)",
// the texts left out when empty.
void timeline_writer::put_name(const activity_record& row) {
    name_.clear();
    put_literal(name_, "IE cache ");
    name_.put(row.signature.data(), type_size(row));
    name_.put(':');
    if (!row.url.empty()) {
        name_.put(' ');
        name_.put(row.url);
    }
    put_literal(name_, " (");
    auto part = [this](const char* label, size_t label_size, const std::string& text) {
        if (text.empty()) return;
        name_.put(label, label_size);
        name_.put(text);
        put_literal(name_, "; ");
    };
    part("user ", 5, row.user);
    part("file ", 5, row.file_name);
    part("dir ", 4, row.directory);
    put_literal(name_, "count ");
    name_.put_decimal(row.count);
    put_literal(name_, "; ");
    if (row.allocated >= 0) {
        put_literal(name_, "allocated ");
        if (row.allocated)
            put_literal(name_, "yes; ");
        else
            put_literal(name_, "no; ");
    }
    if (row.file_state != 0) {  // the image road's
        put_literal(name_, "image file ");
        if (row.image_file.empty())
            put_literal(name_, "none");
        else
            name_.put(row.image_file);
        put_literal(name_, " (");
        name_.put(file_state_name(row.file_state), std::strlen(file_state_name(row.file_state)));
        put_literal(name_, "); ");
    }
    put_literal(name_, "in ");
    name_.put(row.source_file);
    if (row.webcache.present) {
        put_literal(name_, " table ");
        name_.put(row.webcache.table);
        put_literal(name_, " entry ");
        name_.put_decimal(row.webcache.entry_id);
    } else {
        put_literal(name_, " at ");
        name_.put_decimal(row.offset);
    }
    name_.put(')');
}

// From "message" to "cache_kind", with no braces: each event puts its own members around them.
void timeline_writer::put_jsonl_members(const activity_record& row) {
    const webcache_row_facts& w = row.webcache;
    const std::string* texts[] = {&row.url,         &row.user,         &row.file_name,         &row.directory,
                                  &row.http_header, &row.source_file,  &w.table,               &w.container_name,
                                  &w.partition_id,  &w.request_headers, &w.redirect_url,        &row.image_file};
    // A byte takes at most six in JSON ("\u00XX"); 256 for the member names, numbers and words.
    size_t most = name_.size() + 256;
    for (const std::string* text : texts) most += text->size();
    if (members_.size() < 6 * most) members_.resize(6 * most);

    char* p = members_.data();
    auto text = [&p](const char* member, const std::string& value) {
        p = put_literal(p, ",\"");
        p = put_word(p, member);
        p = put_literal(p, "\":");
        p = put_json_string(p, value.data(), value.size());
    };
    p = put_literal(p, "\"message\":");
    p = put_json_string(p, name_.data(), name_.size());
    p = put_literal(p, ",\"type\":");
    p = put_json_string(p, row.signature.data(), type_size(row));
    text("url", row.url);
    text("user", row.user);
    text("filename", row.file_name);
    p = put_number(put_literal(p, ",\"file_size\":"), row.file_size);
    text("directory", row.directory);
    p = put_number(put_literal(p, ",\"use_count\":"), row.count);
    text("http_header", row.http_header);
    text("source", row.source_file);
    if (w.present && !w.has_offset)  // a record only the library gave
        p = put_literal(p, ",\"offset\":null");
    else
        p = put_number(put_literal(p, ",\"offset\":"), row.offset);
    p = put_json_answer(put_literal(p, ",\"allocated\":"), row.allocated);
    p = put_json_answer(put_literal(p, ",\"hash_listed\":"), row.hash_listed);
    if (row.file_state != 0) {  // the image road's two members
        text("file_in_image", row.image_file);
        p = put_literal(p, ",\"file_state\":\"");
        p = put_word(p, file_state_name(row.file_state));
        *p++ = '"';
    }
    p = put_literal(p, ",\"cache_kind\":\"");
    p = put_word(p, cache_kind_name(row.cache_category));
    *p++ = '"';
    if (w.present) {
        text("table", w.table);
        text("container", w.container_name);
        p = put_number(put_literal(p, ",\"container_id\":"), w.container_id);
        p = put_number(put_literal(p, ",\"entry_id\":"), w.entry_id);
        text("partition_id", w.partition_id);
        text("request_headers", w.request_headers);
        text("redirect_url", w.redirect_url);
        p = put_number(put_literal(p, ",\"flags\":"), row.flags);
        p = put_number(put_literal(p, ",\"entry_type\":"), w.type);
        p = put_number(put_literal(p, ",\"sync_count\":"), w.sync_count);
        p = put_number(put_literal(p, ",\"exemption_delta\":"), w.exemption_delta);
        if (w.record_state != nullptr) {
            p = put_literal(p, ",\"record_state\":\"");
            p = put_word(p, w.record_state);
            *p++ = '"';
            if (std::strcmp(w.record_state, "carved") != 0) p = put_number(put_literal(p, ",\"page\":"), w.page);
        }
    }
    members_size_ = static_cast<size_t>(p - members_.data());
}

void timeline_writer::write(const activity_record& row) {
    timeline_stamp stamps[timeline_stamp::kinds];
    const size_t count = timeline_stamps(row, stamps);
    if (form_ == timeline_form::jsonl && count == 0) return;
    put_name(row);

    if (form_ == timeline_form::body) {
        // MD5|name|inode|mode|UID|GID|size|atime|mtime|ctime|crtime; expiry and post check have no place
        // in it, and only a database record has a creation time.
        int64_t seconds[timeline_stamp::kinds] = {};
        for (size_t i = 0; i < count; ++i) seconds[stamps[i].kind] = unix_seconds(stamps[i].ticks);
        line_.clear();
        put_literal(line_, "0|");
        put_body_text(line_, name_.data(), name_.size());
        put_literal(line_, "|0|0|0|0|");
        line_.put_decimal(row.file_size);
        for (timeline_stamp::which kind : {timeline_stamp::last_access, timeline_stamp::last_modified,
                                           timeline_stamp::last_sync, timeline_stamp::created}) {
            char digits[24];
            digits[0] = '|';
            line_.put(digits, static_cast<size_t>(std::to_chars(digits + 1, digits + sizeof digits, seconds[kind]).ptr - digits));
        }
        line_.put('\n');
        out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
        out_.flush();
        return;
    }

    // The shared members are written once and copied into each event; the entry's events go out in one piece.
    put_jsonl_members(row);
    line_.clear();
    for (size_t i = 0; i < count; ++i) {
        char head[96];
        char* p = put_literal(head, "{\"datetime\":\"");
        p = put_iso_8601(p, stamps[i].ticks, true);
        p = put_literal(p, "\",\"timestamp_desc\":\"");
        p = put_word(p, timeline_stamp::descriptions[stamps[i].kind]);
        p = put_literal(p, "\",");
        line_.put(head, static_cast<size_t>(p - head));
        line_.put(members_.data(), members_size_);
        if (stamps[i].local)
            put_literal(line_, ",\"time_label\":\"local\"}\n");
        else
            put_literal(line_, ",\"time_label\":\"UTC\"}\n");
    }
    out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    out_.flush();
}
