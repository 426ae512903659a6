#include "cache/hv_report.h"

#include <charconv>
#include <iomanip>
#include <string>

#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_date_text.h"
#include "foundation/hv_time.h"

namespace {

const char* const column_names[] = {
    "last mod date", "last mod time",  "access date", "access time", "expires date",
    "expires time",  "last sync date", "last sync time", "type",      "url",
    "user",          "filename",       "file size",   "directory",   "count",
    "HTTP header",   "index.dat filename",
};

// The two texts of a stamp group, kept across rows: this runs four times for every row.
struct stamp_texts {
    std::string date;
    std::string time;
    void clear() {
        date.clear();
        time.clear();
    }
};

void format_stamp(stamp_texts& texts, const hv::time& t, const cmd_opts& opts) {
    if (!t.valid) return;
    if (opts.use_locale_format)
        format_date_time_simple(texts.date, texts.time, t, true);
    else
        format_date_time_template(texts.date, texts.time, t, opts.date_format, opts.time_format);
}

void format_filetime(stamp_texts& texts, uint64_t filetime, const cmd_opts& opts) {
    hv::time t(filetime, hv::kind_filetime);
    format_stamp(texts, t, opts);
}

// DOS pairs of an entry are UTC as stored.
void format_dos(stamp_texts& texts, const dos_stamp& pair, const cmd_opts& opts) {
    hv::time t(&pair, true);
    format_stamp(texts, t, opts);
}

// Date, separator, time with its zone word when there is a time, separator.
void append_stamp(std::string& line, const stamp_texts& texts, const char* zone, const std::string& separator) {
    line += texts.date;
    line += separator;
    line += texts.time;
    if (!texts.time.empty()) line += zone;
    line += separator;
}

template <class N>
void append_decimal(std::string& line, N value) {
    char digits[24];
    auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    line.append(digits, end);
}

}  // namespace

void write_header_row(std::ostream& out, const cmd_opts& opts) {
    if (opts.show_note_columns) out << "note" << opts.separator << "offset" << opts.separator;
    const size_t count = sizeof(column_names) / sizeof(column_names[0]);
    for (size_t i = 0; i < count; ++i) {
        out << column_names[i];
        if (i + 1 < count) out << opts.separator;
    }
    out << std::endl;
}

// The row is put together in one reused text and handed to the stream in one write: this runs once
// per entry, and per-field stream insertions cost more than the row itself.
void write_activity_row(const activity_record& row, std::ostream& out, const cmd_opts& opts) {
    // Never freed: one thread, one run, and their storage is what the next row reuses.
    static stamp_texts& texts = *new stamp_texts;
    static std::string& line = *new std::string;
    const std::string& sep = opts.separator;

    if (opts.show_note_columns) {
        // The fill stays "0" on the stream; no width is left set, so later columns don't see it.
        out << "0x" << std::hex << std::setfill('0') << std::setw(8) << row.offset << std::dec << sep;
    }
    line.clear();

    texts.clear();
    if (row.last_modified != 0) format_filetime(texts, row.last_modified, opts);
    append_stamp(line, texts, row.is_local_time ? " local" : " UTC", sep);

    texts.clear();
    if (row.last_access != 0)
        format_filetime(texts, row.last_access, opts);
    else if (row.is_leak && row.second_stamp.date_word != 0)
        format_dos(texts, row.second_stamp, opts);
    append_stamp(line, texts, " UTC", sep);

    texts.clear();
    if (row.expires.date_word != 0) format_dos(texts, row.expires, opts);
    append_stamp(line, texts, " UTC", sep);

    texts.clear();
    if (row.last_sync.date_word != 0) format_dos(texts, row.last_sync, opts);
    append_stamp(line, texts, " UTC", sep);

    line.append(row.signature.data(), row.signature.size());
    line += sep;
    line += row.url;
    if (opts.verbose) {
        for (const std::string* field : {&row.user, &row.file_name}) {
            line += sep;
            line += *field;
        }
        line += sep;
        append_decimal(line, row.file_size);
        line += sep;
        line += row.directory;
        line += sep;
        append_decimal(line, row.count);
        line += sep;
        line += row.http_header;
        line += sep;
        line += row.source_file;
    } else {
        for (int i = 0; i < 7; ++i) line += sep;
        line += row.source_file;
    }
    out.write(line.data(), static_cast<std::streamsize>(line.size()));
    out << std::endl;
}
