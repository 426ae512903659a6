#include "cache/hv_report.h"

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

// The two texts of a stamp group. Kept across rows so that their storage is reused: this runs
// four times for every row.
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
void write_stamp(std::ostream& out, const stamp_texts& texts, const char* zone, const std::string& separator) {
    out << texts.date << separator << texts.time;
    if (!texts.time.empty()) out << zone;
    out << separator;
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

void write_activity_row(const activity_record& row, std::ostream& out, const cmd_opts& opts) {
    static thread_local stamp_texts texts;
    const std::string& sep = opts.separator;

    if (opts.show_note_columns) {
        // The fill stays "0" on the stream; no width is left set, so later columns don't see it.
        out << "0x" << std::hex << std::setfill('0') << std::setw(8) << row.offset << std::dec << sep;
    }

    texts.clear();
    if (row.last_modified != 0) format_filetime(texts, row.last_modified, opts);
    write_stamp(out, texts, row.is_local_time ? " local" : " UTC", sep);

    texts.clear();
    if (row.last_access != 0)
        format_filetime(texts, row.last_access, opts);
    else if (row.is_leak && row.second_stamp.date_word != 0)
        format_dos(texts, row.second_stamp, opts);
    write_stamp(out, texts, " UTC", sep);

    texts.clear();
    if (row.expires.date_word != 0) format_dos(texts, row.expires, opts);
    write_stamp(out, texts, " UTC", sep);

    texts.clear();
    if (row.last_sync.date_word != 0) format_dos(texts, row.last_sync, opts);
    write_stamp(out, texts, " UTC", sep);

    out.write(row.signature.data(), static_cast<std::streamsize>(row.signature.size()));
    out << sep << row.url;
    if (opts.verbose) {
        out << sep << row.user << sep << row.file_name << sep << row.file_size << sep << row.directory << sep
            << row.count << sep << row.http_header << sep << row.source_file;
    } else {
        for (int i = 0; i < 7; ++i) out << sep;
        out << row.source_file;
    }
    out << std::endl;
}
