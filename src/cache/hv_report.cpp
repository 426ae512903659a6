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

// Date, separator, time with its zone word when there is a time, separator.
void append_stamp(std::string& line, const std::string& date, const std::string& time, const char* zone,
                  const std::string& separator) {
    line += date;
    line += separator;
    line += time;
    if (!time.empty()) line += zone;
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

namespace {

// The row behind the note columns, in `line`. Each stamp group is a date text, the separator, the
// time text with its zone word when there is a time, and the separator: empty columns for a stamp
// that is unset or no date.
void append_row(std::string& line, const activity_record& row, const cmd_opts& opts, stamp_formatter& stamps,
                std::string& date, std::string& time) {
    const std::string& sep = opts.separator;
    auto stamp = [&](bool set, const char* zone, auto&& format) {
        date.clear();
        time.clear();
        if (set) format();
        append_stamp(line, date, time, zone, sep);
    };
    stamp(row.last_modified != 0, row.is_local_time ? " local" : " UTC",
          [&] { stamps.filetime(row.last_modified, date, time); });
    if (row.last_access != 0)
        stamp(true, " UTC", [&] { stamps.filetime(row.last_access, date, time); });
    else  // only a LEAK row falls back on its DOS access stamp
        stamp(row.is_leak && row.second_stamp.date_word != 0, " UTC", [&] { stamps.dos(row.second_stamp, date, time); });
    stamp(row.expires.date_word != 0, " UTC", [&] { stamps.dos(row.expires, date, time); });
    stamp(row.last_sync.date_word != 0, " UTC", [&] { stamps.dos(row.last_sync, date, time); });

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
    line += '\n';
}

// "0x" and the offset in at least 8 hex digits; the fill stays "0" on the stream, with no width left set.
void write_note_offset(std::ostream& out, const activity_record& row, const cmd_opts& opts) {
    out << "0x" << std::hex << std::setfill('0') << std::setw(8) << row.offset << std::dec << opts.separator;
}

}  // namespace

void write_activity_row(const activity_record& row, std::ostream& out, const cmd_opts& opts) {
    stamp_formatter stamps(opts.date_format, opts.time_format, opts.use_locale_format);
    if (opts.show_note_columns) write_note_offset(out, row, opts);
    std::string line, date, time;
    append_row(line, row, opts, stamps, date, time);
    out.write(line.data(), static_cast<std::streamsize>(line.size()));
    out.flush();
}

report_writer::report_writer(std::ostream& out, cmd_opts& opts)
    : out_(out), opts_(opts), stamps_(opts.date_format, opts.time_format, opts.use_locale_format) {}

void report_writer::write_header_if_pending() {
    if (opts_.header_pending && opts_.show_rows) {
        opts_.header_pending = false;
        write_header_row(out_, opts_);
    }
}

void report_writer::write_row(const activity_record& row) {
    write_header_if_pending();
    ++number_;
    if (!opts_.show_rows) {
        out_ << row.row_text << std::endl;
        return;
    }
    if (opts_.show_note_columns) {
        out_ << number_ << opts_.separator;
        write_note_offset(out_, row, opts_);
    }
    line_.clear();
    append_row(line_, row, opts_, stamps_, date_, time_);
    // One piece per row; the stream's sync does nothing, as std::endl's flush found it.
    out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    out_.flush();
}

void report_writer::end_input() {
    write_header_if_pending();
    number_ = 0;
}
