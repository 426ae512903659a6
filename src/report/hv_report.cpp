#include "report/hv_report.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>

#include "report/hv_timeline.h"
#include "foundation/hv_date_text.h"
#include "foundation/hv_time.h"

namespace {

const char* const column_names[] = {
    "last mod date", "last mod time",  "access date", "access time", "expires date",
    "expires time",  "last sync date", "last sync time", "type",      "url",
    "user",          "filename",       "file size",   "directory",   "count",
    "HTTP header",   "index.dat filename",
};

// The lossless report's columns behind the usual ones.
const char* const complete_column_names[] = {"offset", "allocated", "hash listed", "file in image", "file state"};
constexpr size_t complete_column_count = sizeof(complete_column_names) / sizeof(complete_column_names[0]);

// Whether any byte of `text` is one of the four, sixteen bytes tested at once. The last few are padded
// with copies of the first of them, which answers for itself.
bool holds_any(const char* text, size_t size, char a, char b, char c, char d) {
    typedef char sixteen __attribute__((vector_size(16)));
    sixteen found = {};
    auto test = [&](const sixteen& x) { found |= (x == a) | (x == b) | (x == c) | (x == d); };
    size_t i = 0;
    for (sixteen x; i + 16 <= size; i += 16) {
        std::memcpy(&x, text + i, sizeof x);
        test(x);
    }
    if (i < size) {
        sixteen x;
        std::memset(&x, text[i], sizeof x);
        std::memcpy(&x, text + i, size - i);
        test(x);
    }
    uint64_t half[2];
    std::memcpy(half, &found, sizeof half);
    return (half[0] | half[1]) != 0;
}

// How many bytes of `text` are `mark`: byte-wide counts, which the compiler widens, in runs they can't
// overflow.
[[gnu::noipa]] size_t count_of(const char* text, size_t size, char mark) {
    size_t count = 0;
    while (size > 0) {
        const size_t run = std::min<size_t>(size, 255);
        unsigned char in_run = 0;
        for (size_t i = 0; i < run; ++i) in_run = static_cast<unsigned char>(in_run + (text[i] == mark));
        count += in_run;
        text += run;
        size -= run;
    }
    return count;
}

}  // namespace

csv_fields::csv_fields(const std::string& separator) : separator_(separator) {
    const char marks[] = {separator.empty() ? '"' : separator[0], '"', '\r', '\n'};
    for (char c : marks) special_[static_cast<unsigned char>(c)] = true;
    if (!separator.empty()) first_in_separator_ = static_cast<size_t>(std::count(separator.begin(), separator.end(), separator[0]));
}

bool csv_fields::plain_row(const char* row, size_t size, size_t separators) const {
    if (separator_.empty() || holds_any(row, size, '"', '\r', '\n', '"')) return false;
    // Each separator brings its own first bytes; one more means a field holds it.
    return count_of(row, size, separator_[0]) == separators * first_in_separator_;
}

bool csv_fields::needs_quotes(const char* text, size_t size) const {
    bool candidate = false;
    if (size < 32) {  // most fields are short: dates, times, numbers
        for (size_t i = 0; i < size; ++i) candidate |= special_[static_cast<unsigned char>(text[i])];
    } else {
        candidate = holds_any(text, size, separator_.empty() ? '"' : separator_[0], '"', '\r', '\n');
    }
    if (!candidate || separator_.size() <= 1) return candidate;
    // The first byte of a longer separator calls for nothing alone.
    return std::memchr(text, '"', size) || std::memchr(text, '\r', size) || std::memchr(text, '\n', size) ||
           std::string_view(text, size).find(separator_) != std::string_view::npos;
}

void csv_fields::put_quoted(row_buffer& line, const char* text, size_t size) {
    for (const char* quote; (quote = static_cast<const char*>(std::memchr(text, '"', size))) != nullptr;) {
        const size_t before = static_cast<size_t>(quote - text) + 1;
        line.put(text, before);
        line.put('"');
        text += before;
        size -= before;
    }
    line.put(text, size);
}

void csv_fields::put(row_buffer& line, const char* text, size_t size) const {
    if (!needs_quotes(text, size)) {
        line.put(text, size);
        return;
    }
    line.put('"');
    put_quoted(line, text, size);
    line.put('"');
}

void csv_fields::put(row_buffer& line, const char* text, size_t size, const char* more, size_t more_size) const {
    if (!needs_quotes(text, size) && !needs_quotes(more, more_size)) {
        line.put(text, size);
        line.put(more, more_size);
        return;
    }
    line.put('"');
    put_quoted(line, text, size);
    put_quoted(line, more, more_size);
    line.put('"');
}

namespace {

// Date, separator, time with its zone word when there is a time, separator.
void put_stamp(row_buffer& line, const stamp_formatter::texts& texts, const char* zone, size_t zone_size,
               const report_settings& settings, const csv_fields* csv) {
    const std::string& separator = settings.separator;
    if (csv != nullptr) {
        csv->put(line, texts.date, texts.date_size);
        line.put(separator);
        csv->put(line, texts.time, texts.time_size, zone, texts.time_size != 0 ? zone_size : 0);
        line.put(separator);
        return;
    }
    line.put(texts.date, texts.date_size);
    line.put(separator);
    line.put(texts.time, texts.time_size);
    if (texts.time_size != 0) line.put(zone, zone_size);
    line.put(separator);
}

// The column names, each followed by the separator but the last, then a line end.
void write_header_row(std::ostream& out, const report_settings& settings) {
    const size_t count = sizeof(column_names) / sizeof(column_names[0]);
    if (settings.complete) {
        const csv_fields csv(settings.separator);
        row_buffer line;
        for (size_t i = 0; i < count; ++i) {
            csv.put(line, column_names[i], std::strlen(column_names[i]));
            line.put(settings.separator);
        }
        for (size_t i = 0; i < complete_column_count; ++i) {
            csv.put(line, complete_column_names[i], std::strlen(complete_column_names[i]));
            if (i + 1 < complete_column_count) line.put(settings.separator);
        }
        line.put('\n');
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
        out.flush();
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        out << column_names[i];
        if (i + 1 < count) out << settings.separator;
    }
    out << std::endl;
}

// The four stamp groups. Each is a date text, the separator, the time text with its zone word when
// there is a time, and the separator: empty columns for a stamp that is unset or no date.
void append_stamps(row_buffer& line, const activity_record& row, const report_settings& settings, stamp_formatter& stamps,
                   const csv_fields* csv) {
    static const char utc[] = " UTC", local[] = " local";
    stamp_formatter::texts texts;
    auto stamp = [&](bool ok, const char* zone, size_t zone_size) {
        if (!ok) texts = stamp_formatter::texts();
        put_stamp(line, texts, zone, zone_size, settings, csv);
    };
    if (row.is_local_time)
        stamp(row.last_modified != 0 && stamps.filetime(row.last_modified, texts), local, sizeof local - 1);
    else
        stamp(row.last_modified != 0 && stamps.filetime(row.last_modified, texts), utc, sizeof utc - 1);
    if (row.last_access != 0)
        stamp(stamps.filetime(row.last_access, texts), utc, sizeof utc - 1);
    else  // only a LEAK row falls back on its DOS access stamp
        stamp(row.is_leak && row.second_stamp.date_word != 0 && stamps.dos(row.second_stamp, texts), utc, sizeof utc - 1);
    if (row.webcache.present) {  // a database keeps these two as FILETIMEs too
        stamp(row.webcache.expires != 0 && stamps.filetime(row.webcache.expires, texts), utc, sizeof utc - 1);
        stamp(row.webcache.last_sync != 0 && stamps.filetime(row.webcache.last_sync, texts), utc, sizeof utc - 1);
        return;
    }
    stamp(row.expires.date_word != 0 && stamps.dos(row.expires, texts), utc, sizeof utc - 1);
    stamp(row.last_sync.date_word != 0 && stamps.dos(row.last_sync, texts), utc, sizeof utc - 1);
}

// The default report's row, in `line`.
void append_row(row_buffer& line, const activity_record& row, const report_settings& settings, stamp_formatter& stamps) {
    const std::string& sep = settings.separator;
    append_stamps(line, row, settings, stamps, nullptr);
    line.put(row.signature.data(), row.signature.size());
    line.put(sep);
    line.put(row.url);
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
    line.put('\n');
}

// `fields(csv)` writes a run of fields with `separators` separators, through `csv` when it is given.
// Most runs need no quotes: written plain, their bytes are checked in one pass, and written again
// field by field only when that finds a byte that calls for quotes.
template <class Fields>
void put_checked(row_buffer& line, const csv_fields& csv, size_t separators, Fields fields) {
    const size_t start = line.size();
    fields(nullptr);
    if (csv.plain_row(line.data() + start, line.size() - start, separators)) return;
    line.truncate(start);
    fields(&csv);
}

// The lossless row, in `line`, its fields as CSV has them.
void append_complete_row(row_buffer& line, const activity_record& row, const report_settings& settings,
                         stamp_formatter& stamps, const csv_fields& csv) {
    const std::string& sep = settings.separator;
    auto value = [&line](const csv_fields* quoting, const char* text, size_t size) {
        if (quoting != nullptr)
            quoting->put(line, text, size);
        else
            line.put(text, size);
    };
    auto field = [&](const csv_fields* quoting, const char* text, size_t size) {
        value(quoting, text, size);
        line.put(sep);
    };
    auto text_field = [&](const csv_fields* quoting, const std::string& text) { field(quoting, text.data(), text.size()); };
    auto number = [&](const csv_fields* quoting, uint64_t value) {
        char digits[24];
        field(quoting, digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, value).ptr - digits));
    };
    // The HTTP header mostly holds line ends, so it goes alone; the fields before it and after it are
    // checked in two runs.
    put_checked(line, csv, 15, [&](const csv_fields* quoting) {
        append_stamps(line, row, settings, stamps, quoting);
        field(quoting, row.signature.data(), row.signature.size());
        for (const std::string* text : {&row.url, &row.user, &row.file_name}) text_field(quoting, *text);
        number(quoting, row.file_size);
        text_field(quoting, row.directory);
        number(quoting, row.count);
    });
    text_field(&csv, row.http_header);
    put_checked(line, csv, 5, [&](const csv_fields* quoting) {
        text_field(quoting, row.source_file);
        if (row.webcache.present && !row.webcache.has_offset)  // a record only the library gave
            field(quoting, "", 0);
        else
            number(quoting, row.offset);
        static const char* const answers[] = {"", "no", "yes"};
        field(quoting, answers[row.allocated + 1], std::strlen(answers[row.allocated + 1]));
        field(quoting, answers[row.hash_listed + 1], std::strlen(answers[row.hash_listed + 1]));
        // Both empty off the image road.
        text_field(quoting, row.image_file);
        const char* state = file_state_name(row.file_state);
        value(quoting, state, std::strlen(state));
    });
    line.put('\n');
}

}  // namespace

rows_writer::rows_writer(std::ostream& out, const report_settings& settings)
    : out_(out),
      settings_(settings),
      header_pending_(settings.header),
      stamps_(settings.date_format, settings.time_format, settings.use_locale_format),
      csv_(settings.separator) {}

void rows_writer::write_header_if_pending() {
    if (!header_pending_) return;
    header_pending_ = false;
    write_header_row(out_, settings_);
}

void rows_writer::write(const activity_record& row) {
    write_header_if_pending();
    line_.clear();
    if (settings_.complete)
        append_complete_row(line_, row, settings_, stamps_, csv_);
    else
        append_row(line_, row, settings_, stamps_);
    // One piece per row; the stream's sync does nothing, as std::endl's flush found it.
    out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    out_.flush();
}

void rows_writer::end_input(const input_summary&) { write_header_if_pending(); }

std::unique_ptr<entry_writer> rows_writer::copy_to(std::ostream& out) const {
    report_settings settings = settings_;
    settings.header = false;
    return std::make_unique<rows_writer>(out, settings);
}

void rows_writer::write_made(const std::string& text) {
    write_header_if_pending();
    out_.write(text.data(), static_cast<std::streamsize>(text.size()));
    out_.flush();
}

std::unique_ptr<entry_writer> make_report_writer(std::ostream& out, const report_settings& settings) {
    if (settings.timeline != timeline_form::none) return std::make_unique<timeline_writer>(out, settings.timeline);
    return std::make_unique<rows_writer>(out, settings);
}
