#include "driver/hv_database_input.h"

#include <cstdlib>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "foundation/hv_console.h"
#include "indexdat/hv_scan.h"
#include "storage/hv_image.h"
#include "webcache/hv_ese_header.h"
#include "webcache/hv_ese_long_values.h"
#include "webcache/hv_ese_page.h"
#include "webcache/hv_webcache_images.h"
#include "webcache/hv_webcache_rows.h"

namespace {

const std::string container_prefix = "Container_";
// The long values read from a database's pages, in all: no column of the cache holds much, and a damaged
// database may flag any page as one of a long-value tree.
constexpr size_t long_value_bytes_limit = size_t{16} << 20;

// Hands the library's records on as rows, but for those the page walk already gave, and tells what the
// database couldn't give.
class row_sink : public webcache_sink {
public:
    row_sink(run_context& run, const input_ref& input, const std::set<std::pair<uint64_t, uint64_t>>& walked_live,
             const std::set<std::string>& walked_tables)
        : run_(run), scan_(run.scan), input_(input), walked_live_(walked_live), walked_tables_(walked_tables) {}

    bool record(const webcache_record& record) override {
        if (record.container != nullptr && walked_live_.count({record.container->id, record.entry_id}) != 0) return true;
        scan_.write_record([&](activity_record& row, bool whole) {
            fill_activity_from_webcache(row, record, whole, input_.path);
        });
        return scan_.report_ok();
    }
    void table_unreadable(const std::string& table, uint64_t missing, const std::string& library_text) override {
        std::string text = "prob reading " + input_.path + ": table " + table;
        if (walked_tables_.count(table) != 0)
            text += " can't be read through its index, its records were read from its pages\n";
        else if (missing == 0)
            text += " can't be read, its records are missing\n";
        else
            text += " can't be read whole, " + std::to_string(missing) + " of its records are missing\n";
        write_console_error(text);
        diag_line(run_.diags, "libesedb on table " + table + ": " + library_text);
    }

private:
    run_context& run_;
    input_scan& scan_;
    const input_ref& input_;
    const std::set<std::pair<uint64_t, uint64_t>>& walked_live_;
    const std::set<std::string>& walked_tables_;
};

// Every page of the database, read by this program: the images in each, live or not, as rows. Which
// table a page serves comes from its header's object id, named by the catalog.
void walk_pages(input_scan& scan, const input_ref& input, image_reader& file, size_t page_size,
                const webcache_database& database, std::set<std::pair<uint64_t, uint64_t>>& walked_live,
                std::set<std::string>& walked_tables) {
    const std::map<uint32_t, std::string> objects = database.table_objects();
    container_lookup containers(database.containers());
    std::vector<uint8_t> page(page_size);
    std::vector<webcache_image> images;
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
            scan.write_record([&](activity_record& row, bool whole) {
                make_image_row(whole, input.path, row, image, containers.of(id), at + image.offset, page_number);
            });
        }
    }
}

}  // namespace

bool read_database(run_context& run, const input_ref& input, image_reader& file, bool& result) {
    input_scan& scan = run.scan;
    result = false;
    ESE_FILE_HEADER header;
    uint8_t bytes[ESE_FILE_HEADER::size];
    if (file.size() < sizeof bytes || !file.read(0, bytes, sizeof bytes) || !header.read(bytes, sizeof bytes) ||
        !header.valid())
        return false;
    // A file inside an evidence image has no path of its own: its bytes are read through the image.
    std::vector<uint8_t> held;
    if (input.road == road_kind::image) {
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
    switch (held.empty() ? database.open(input.path) : database.open_memory(held.data(), held.size())) {
        case webcache_fault::none:
            break;
        case webcache_fault::not_offered:
            run.say_once("prob reading " + input.path +
                         ": WebCache databases are not read in this build, it is read as any other file\n");
            return false;
        case webcache_fault::refused:
            diag_line(run.diags, "libesedb refused " + input.path + ": " + database.library_text());
            return true;  // no rows: told as any file that gave nothing
    }
    if (header.dirty())
        write_console_error("prob reading " + input.path +
                            ": the database was not shut down cleanly; records still in its transaction logs are not read\n");
    std::set<std::pair<uint64_t, uint64_t>> walked_live;
    std::set<std::string> walked_tables;
    walk_pages(scan, input, file, header.page_size(), database, walked_live, walked_tables);
    row_sink sink(run, input, walked_live, walked_tables);
    if (scan.report_ok()) database.walk(sink);
    result = scan.rows() != 0;
    return true;
}
