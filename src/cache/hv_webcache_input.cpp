#include "cache/hv_webcache_input.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <vector>

#include "cache/hv_entry.h"
#include "cache/hv_scan.h"
#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_console.h"
#include "foundation/hv_string.h"
#include "storage/hv_image.h"
#include "webcache/hv_ese_header.h"
#include "webcache/hv_ese_long_values.h"
#include "webcache/hv_ese_page.h"
#include "webcache/hv_webcache_images.h"

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

// Hands the library's records on as rows, but for those the page walk already gave, and tells what the
// database couldn't give.
class row_sink : public webcache_sink {
public:
    row_sink(input_scan& scan, const cmd_opts& opts, const std::set<std::pair<uint64_t, uint64_t>>& walked_live,
             const std::set<std::string>& walked_tables)
        : scan_(scan), opts_(opts), walked_live_(walked_live), walked_tables_(walked_tables) {}

    bool record(const webcache_record& record) override {
        if (record.container != nullptr && walked_live_.count({record.container->id, record.entry_id}) != 0) return true;
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
        if (walked_tables_.count(table) != 0)
            text += " can't be read through its index, its records were read from its pages\n";
        else if (missing == 0)
            text += " can't be read, its records are missing\n";
        else
            text += " can't be read whole, " + std::to_string(missing) + " of its records are missing\n";
        write_console_error(text);
        diag_line(opts_.diags(), "libesedb on table " + table + ": " + library_text);
    }

private:
    input_scan& scan_;
    const cmd_opts& opts_;
    const std::set<std::pair<uint64_t, uint64_t>>& walked_live_;
    const std::set<std::string>& walked_tables_;
    activity_record row_;
};

const std::string container_prefix = "Container_";
// The long values read from a database's pages, in all: no column of the cache holds much, and a damaged
// database may flag any page as one of a long-value tree.
constexpr size_t long_value_bytes_limit = size_t{16} << 20;

// The container a table name or a record's ContainerId names; containers the Containers table doesn't
// list are made up from the id alone, with no name.
class container_lookup {
public:
    explicit container_lookup(const std::vector<webcache_container>& listed) {
        for (const webcache_container& c : listed) by_id_.emplace(c.id, &c);
    }
    const webcache_container& of(uint64_t id) {
        auto found = by_id_.find(id);
        if (found != by_id_.end()) return *found->second;
        webcache_container& made = unlisted_[id];
        made.id = id;
        return made;
    }

private:
    std::map<uint64_t, const webcache_container*> by_id_;
    std::map<uint64_t, webcache_container> unlisted_;
};

// A row for an image found in bytes, at `offset` in the input.
void make_image_row(const cmd_opts& opts, const std::string& source, activity_record& row, webcache_image& image,
                    const webcache_container& container, uint64_t offset, uint64_t page) {
    image.record.container = &container;
    fill_activity_from_webcache(row, image.record, opts.complete_report, source);
    row.offset = offset;
    row.allocated = image.state == webcache_record_state::live ? 1 : 0;
    row.webcache.has_offset = true;
    row.webcache.record_state = webcache_record_state_name(image.state);
    row.webcache.page = page;
}

// Every page of the database, read by this program: the images in each, live or not, as rows. Which
// table a page serves comes from its header's object id, named by the catalog.
void walk_pages(input_scan& scan, const cmd_opts& opts, image_reader& file, size_t page_size,
                const webcache_database& database, std::set<std::pair<uint64_t, uint64_t>>& walked_live,
                std::set<std::string>& walked_tables) {
    const std::map<uint32_t, std::string> objects = database.table_objects();
    container_lookup containers(database.containers());
    std::vector<uint8_t> page(page_size);
    std::vector<webcache_image> images;
    activity_record row;
    // First the catalog's and the long-value trees' leaf pages: the values records keep apart.
    ese_long_value_reader long_values(long_value_bytes_limit);
    ese_page header;
    for (uint64_t at = 2 * uint64_t(page_size); at + page_size <= file.size(); at += page_size) {
        if (!file.read(at, page.data(), page_size)) break;
        if (!read_ese_page(page.data(), page_size, header) || !header.leaf()) continue;
        if (header.father_object == ESE_CATALOG_RECORD::catalog_object && !header.index())
            long_values.read_catalog_page(page.data(), page_size);
        else if (header.long_values())
            long_values.read_long_value_page(page.data(), page_size, header.father_object);
    }
    std::map<uint32_t, ese_long_values> values_by_table;
    // Pages count from the one after the header and its shadow copy.
    for (uint64_t at = 2 * uint64_t(page_size); at + page_size <= file.size() && scan.report_ok(); at += page_size) {
        if (!file.read(at, page.data(), page_size)) break;
        read_ese_page(page.data(), page_size, header);
        auto table = objects.find(header.father_object);
        uint64_t table_id = 0;
        bool in_table = false;
        if (table != objects.end() && table->second.compare(0, container_prefix.size(), container_prefix) == 0 &&
            header.leaf() && !header.long_values() && !header.index()) {
            char* end = nullptr;
            table_id = std::strtoull(table->second.c_str() + container_prefix.size(), &end, 10);
            in_table = end != nullptr && *end == '\0';
        }
        const ese_long_values* values = nullptr;
        if (in_table) {
            auto known = values_by_table.find(header.father_object);
            if (known == values_by_table.end()) {
                known = values_by_table.emplace(header.father_object, ese_long_values()).first;
                long_values.values_of_table(header.father_object, known->second);
            }
            values = &known->second;
        }
        decode_database_page(page.data(), page_size, in_table, values, images);
        if (in_table && !images.empty()) walked_tables.insert(table->second);
        const uint64_t page_number = at / page_size - 1;
        for (webcache_image& image : images) {
            const uint64_t id = in_table ? table_id : image.container_id;
            if (image.state == webcache_record_state::live) walked_live.insert({id, image.record.entry_id});
            make_image_row(opts, opts.current_file, row, image, containers.of(id), at + image.offset, page_number);
            scan.write_record_row(row);
        }
    }
}

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

void carve_webcache_rows(const cmd_opts& opts, image_reader* input, const uint8_t* bytes, size_t size,
                         size_t start_limit, uint64_t base, std::vector<activity_record>& rows) {
    rows.clear();
    // Starts are looked for below the limit only: the window's overlap is the next window's to report.
    const size_t limit = std::min(start_limit, size);
    const size_t starts_end = std::min(size, limit + ESE_CONTAINER_RECORD::header_size - 1);
    size_t at = next_container_header(bytes, starts_end, 0);
    if (at >= limit) return;
    static const std::vector<webcache_container> none;
    container_lookup containers(none);
    const std::string source = build_source_text(opts);  // as the input's index.dat rows name it
    std::vector<uint8_t> copy;
    webcache_image image;
    for (; at < limit; at = next_container_header(bytes, starts_end, at + 1)) {
        // An image that may run past the window's end is read again from the input, as far as an image
        // can run: a window reports each image it starts, whatever its end cuts.
        const bool cut = at + webcache_image_limit > size && next_container_header(bytes, size, at + 1) == size &&
                         input != nullptr && base + size < input->size();
        bool found = false;
        if (cut) {
            const uint64_t from = base + at;
            copy.resize(static_cast<size_t>(std::min<uint64_t>(webcache_image_limit, input->size() - from)));
            found = input->read(from, copy.data(), copy.size()) && carve_container_record(copy.data(), copy.size(), 0, image);
        } else {
            found = carve_container_record(bytes, size, at, image);
        }
        if (!found) continue;
        rows.emplace_back();
        make_image_row(opts, source, rows.back(), image, containers.of(image.container_id), base + at, 0);
    }
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
    std::set<std::pair<uint64_t, uint64_t>> walked_live;
    std::set<std::string> walked_tables;
    walk_pages(scan, opts, file, header.page_size(), database, walked_live, walked_tables);
    row_sink sink(scan, opts, walked_live, walked_tables);
    if (scan.report_ok()) database.walk(sink);
    result = scan.rows() != 0;
    return true;
}
