#include "cache/hv_webcache_input.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "cache/hv_entry.h"
#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_console.h"
#include "foundation/hv_string.h"
#include "storage/hv_image.h"
#include "webcache/hv_ese_header.h"

namespace {

const char user_mark[] = "~U:";
constexpr size_t user_mark_size = sizeof(user_mark) - 1;

// The name before "@" of a history URL, "Visited: NAME@..." or ":YYYYMMDDYYYYMMDD: NAME@...".
std::string user_of_history_url(const std::string& url) {
    size_t from = std::string::npos;
    if (url.compare(0, 9, "Visited: ") == 0)
        from = 9;
    else if (starts_with_date_range(url) && url.compare(18, 1, " ") == 0)
        from = 19;
    if (from == std::string::npos) return std::string();
    const size_t at = url.find('@', from);
    return at == std::string::npos ? std::string() : url.substr(from, at - from);
}

// The response headers as the report has them, and the user behind "~U:" in them, by the rules of an
// index.dat entry's stored data (decode_url_or_leak), so that both kinds of input read alike.
void split_headers(activity_record& row, const std::string& stored, bool whole) {
    size_t length = stored.size();
    const size_t mark = stored.find(user_mark, 0, user_mark_size);
    if (mark != std::string::npos) {
        length = mark;
        const size_t from = mark + user_mark_size;
        const size_t nul = stored.find('\0', mark);
        row.user.assign(stored, from, nul == std::string::npos ? std::string::npos : nul - from);
        trim_whitespace(row.user);
    }
    if (whole) {
        row.http_header.assign(stored, 0, std::min(length, stored.find('\0')));
        trim_whitespace(row.http_header);
        return;
    }
    copy_printable_text(row.http_header, reinterpret_cast<const uint8_t*>(stored.data()), static_cast<int>(length),
                        false, ' ');
    clean_field(row.http_header);
    if (mark == 0) {  // data that begins with the user mark: "-" in both columns
        row.http_header = "-";
        row.user = "-";
    }
}

// Hands the records on as rows and tells what the database couldn't give.
class row_sink : public webcache_sink {
public:
    row_sink(input_scan& scan, const cmd_opts& opts) : scan_(scan), opts_(opts) {}

    bool record(const webcache_record& record) override {
        fill_activity_from_webcache(row_, record, opts_.complete_report, opts_.current_file);
        scan_.write_record_row(row_);
        if (input_scan* lossless = scan_.lossless()) {
            fill_activity_from_webcache(row_, record, true, opts_.current_file);
            lossless->write_record_row(row_);
        }
        return scan_.report_ok();
    }
    void table_unreadable(const std::string& table, uint64_t missing, const std::string& library_text) override {
        std::string text = "prob reading " + opts_.current_file + ": table " + table;
        if (missing == 0)
            text += " can't be read, its records are missing\n";
        else
            text += " can't be read whole, " + std::to_string(missing) + " of its records are missing\n";
        write_console_error(text);
        diag_line(opts_.diags(), "libesedb on table " + table + ": " + library_text);
    }

private:
    input_scan& scan_;
    const cmd_opts& opts_;
    activity_record row_;
};

}  // namespace

uint32_t webcache_container_kind(const std::string& name) {
    // In this order, as for the words of a path: MSHist containers are history too.
    static const struct {
        const char* word;
        uint32_t kind;
    } words[] = {
        {"MSHist", cache_daily_history}, {"History", cache_history},   {"Content", cache_browser},
        {"Cookies", cache_cookies},      {"iedownload", cache_download},
    };
    for (const auto& w : words)
        if (name.find(w.word) != std::string::npos) return w.kind;
    return cache_unknown;
}

void fill_activity_from_webcache(activity_record& row, const webcache_record& record, bool whole,
                                 const std::string& source) {
    row.reset();
    webcache_row_facts& facts = row.webcache;
    facts.present = true;
    facts.entry_id = record.entry_id;
    facts.created = record.creation_time == unset_u64 ? 0 : record.creation_time;
    row.source_file = source;
    row.offset = 0;
    row.allocated = 1;  // a record of a live table
    row.valid = true;
    row.file_name = record.file_name;
    if (!whole) clean_field(row.file_name);
    if (record.leak || record.container == nullptr) {
        std::memcpy(row.signature.data(), "LEAK", 4);
        row.is_leak = true;
        facts.table = "LeakFiles";
        return;
    }
    const webcache_container& container = *record.container;
    std::memcpy(row.signature.data(), "URL ", 4);
    row.cache_category = webcache_container_kind(container.name);
    facts.table = "Container_" + std::to_string(container.id);
    facts.container_name = container.name;
    facts.container_id = container.id;
    facts.partition_id = container.partition_id;
    facts.request_headers = record.request_headers;
    facts.redirect_url = record.redirect_url;
    facts.type = record.type;
    facts.sync_count = record.sync_count;
    facts.exemption_delta = record.exemption_delta;
    auto stamp = [](uint64_t raw) { return raw == unset_u64 ? 0 : raw; };
    row.last_modified = stamp(record.modified_time);
    row.last_access = stamp(record.accessed_time);
    facts.expires = stamp(record.expiry_time);
    facts.last_sync = stamp(record.sync_time);
    facts.post_check = stamp(record.post_check_time);
    row.url = record.url;
    row.is_local_time = row.cache_category == cache_daily_history || (whole && starts_with_date_range(row.url));
    split_headers(row, record.response_headers, whole);
    if (row.user.empty()) row.user = user_of_history_url(row.url);
    if (!whole) clean_field(row.url);
    row.file_size = record.file_size;
    row.directory = container.secure_directory(record.secure_directory);
    row.count = record.access_count;
    row.flags = record.flags;
}

bool read_database(input_scan& scan, cmd_opts& opts, image_reader& file, bool& result) {
    result = false;
    ESE_FILE_HEADER header;
    uint8_t bytes[ESE_FILE_HEADER::size];
    if (file.size() < sizeof bytes || !file.read(0, bytes, sizeof bytes) || !header.read(bytes, sizeof bytes) ||
        !header.valid())
        return false;
    // A file inside an evidence image has no path of its own: its bytes are read through the image.
    std::vector<uint8_t> held;
    if (!opts.image_file.empty()) {
        constexpr uint64_t held_limit = uint64_t{1} << 30;
        if (file.size() > held_limit) return false;
        try {
            held.resize(static_cast<size_t>(file.size()));
        } catch (const std::bad_alloc&) {
            return false;
        }
        if (!file.read(0, held.data(), held.size())) return false;
    }
    webcache_database database;
    switch (held.empty() ? database.open(opts.current_file) : database.open_memory(held.data(), held.size())) {
        case webcache_fault::none:
            break;
        case webcache_fault::not_offered:
            if (!scan.told_databases_not_read) {
                write_console_error("prob reading " + opts.current_file +
                                    ": WebCache databases are not read in this build, it is read as any other file\n");
                scan.told_databases_not_read = true;
            }
            return false;
        case webcache_fault::refused:
            diag_line(opts.diags(), "libesedb refused " + opts.current_file + ": " + database.library_text());
            return true;  // no rows: told as any file that gave nothing
    }
    if (header.dirty())
        write_console_error("prob reading " + opts.current_file +
                            ": the database was not shut down cleanly; records still in its transaction logs are not read\n");
    row_sink sink(scan, opts);
    database.walk(sink);
    result = scan.rows() != 0;
    return true;
}
