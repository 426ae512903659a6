#include "cache/hv_report.h"

#include <algorithm>
#include <charconv>
#include <cstring>
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

}  // namespace

void row_buffer::grow(size_t more) { bytes_.resize(std::max(bytes_.size() * 2, size_ + more + 1024)); }

void row_buffer::put_decimal(uint64_t value) {
    char digits[24];
    const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    put(digits, static_cast<size_t>(end - digits));
}

namespace {

// Date, separator, time with its zone word when there is a time, separator.
void put_stamp(row_buffer& line, const stamp_formatter::texts& texts, const char* zone, size_t zone_size,
               const std::string& separator) {
    line.put(texts.date, texts.date_size);
    line.put(separator);
    line.put(texts.time, texts.time_size);
    if (texts.time_size != 0) line.put(zone, zone_size);
    line.put(separator);
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
void append_row(row_buffer& line, const activity_record& row, const cmd_opts& opts, stamp_formatter& stamps) {
    static const char utc[] = " UTC", local[] = " local";
    const std::string& sep = opts.separator;
    stamp_formatter::texts texts;
    auto stamp = [&](bool ok, const char* zone, size_t zone_size) {
        if (!ok) texts = stamp_formatter::texts();
        put_stamp(line, texts, zone, zone_size, sep);
    };
    if (row.is_local_time)
        stamp(row.last_modified != 0 && stamps.filetime(row.last_modified, texts), local, sizeof local - 1);
    else
        stamp(row.last_modified != 0 && stamps.filetime(row.last_modified, texts), utc, sizeof utc - 1);
    if (row.last_access != 0)
        stamp(stamps.filetime(row.last_access, texts), utc, sizeof utc - 1);
    else  // only a LEAK row falls back on its DOS access stamp
        stamp(row.is_leak && row.second_stamp.date_word != 0 && stamps.dos(row.second_stamp, texts), utc, sizeof utc - 1);
    stamp(row.expires.date_word != 0 && stamps.dos(row.expires, texts), utc, sizeof utc - 1);
    stamp(row.last_sync.date_word != 0 && stamps.dos(row.last_sync, texts), utc, sizeof utc - 1);

    line.put(row.signature.data(), row.signature.size());
    line.put(sep);
    line.put(row.url);
    if (opts.verbose) {
        line.put(sep);
        line.put(row.user);
        line.put(sep);
        line.put(row.file_name);
        line.put(sep);
        line.put_decimal(row.file_size);
        line.put(sep);
        line.put(row.directory);
        line.put(sep);
        line.put_decimal(row.count);
        line.put(sep);
        line.put(row.http_header);
        line.put(sep);
        line.put(row.source_file);
    } else {
        for (int i = 0; i < 7; ++i) line.put(sep);
        line.put(row.source_file);
    }
    line.put('\n');
}

// "0x" and the offset in at least 8 hex digits; the fill stays "0" on the stream, with no width left set.
void write_note_offset(std::ostream& out, const activity_record& row, const cmd_opts& opts) {
    out << "0x" << std::hex << std::setfill('0') << std::setw(8) << row.offset << std::dec << opts.separator;
}

}  // namespace

void write_activity_row(const activity_record& row, std::ostream& out, const cmd_opts& opts) {
    stamp_formatter stamps(opts.date_format, opts.time_format, opts.use_locale_format);
    if (opts.show_note_columns) write_note_offset(out, row, opts);
    row_buffer line;
    append_row(line, row, opts, stamps);
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
    append_row(line_, row, opts_, stamps_);
    // One piece per row; the stream's sync does nothing, as std::endl's flush found it.
    out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    out_.flush();
}

void report_writer::end_input() {
    write_header_if_pending();
    number_ = 0;
}
