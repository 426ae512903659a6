// A WebCache database over any bytes in memory, opened through libesedb's file IO over a memory range.
// libesedb's parser is not ours; what is fuzzed is the handling of its answers: the Containers table,
// the values read by name and size, the records made rows in every form. The header test runs without
// the library.
//
// A real database is megabytes of pages of which a walk reads a few, so the input is a list of pages:
// each a 2-byte slot number (little-endian, below 512) and the page's bytes, placed at slot * page size
// of a file of zeros; the page size is the one the first page's header names (4 KiB when it names none).
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "report/hv_report.h"
#include "report/hv_timeline.h"
#include "webcache/hv_webcache_rows.h"
#include "foundation/hv_bytes.h"
#include "webcache/hv_ese_header.h"
#include "webcache/hv_webcache.h"

namespace {

constexpr size_t slot_limit = 512;

std::vector<uint8_t> database_of_pages(const uint8_t* data, size_t size) {
    std::vector<uint8_t> file;
    if (size < 2) return file;
    ESE_FILE_HEADER header;
    const size_t page = header.read(data + 2, size - 2) && header.valid() ? header.page_size() : 4096;
    for (size_t at = 0; at + 2 <= size; at += 2 + page) {
        const size_t slot = hv::le16(data, size, at) % slot_limit;
        const size_t length = std::min(page, size - at - 2);
        if (file.size() < (slot + 1) * page) file.resize((slot + 1) * page);
        std::memcpy(file.data() + slot * page, data + at + 2, length);
    }
    return file;
}

// Each record as a default row, a lossless row and its jsonl events.
struct writing_sink : webcache_sink {
    std::ostringstream out;
    rows_writer plain_writer{out, report_settings()}, complete_writer{out, complete()};
    timeline_writer jsonl_writer{out, timeline_form::jsonl};
    activity_record row;

    static report_settings complete() {
        report_settings settings;
        settings.complete = true;
        return settings;
    }
    bool record(const webcache_record& record) override {
        fill_activity_from_webcache(row, record, false, "fuzz.dat");
        plain_writer.write(row);
        fill_activity_from_webcache(row, record, true, "fuzz.dat");
        complete_writer.write(row);
        jsonl_writer.write(row);
        out.str("");
        return true;
    }
    void table_unreadable(const std::string&, uint64_t, const std::string&) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> file = database_of_pages(data, size);
    looks_like_ese_database(file.data(), file.size());
    webcache_database database;
    if (database.open_memory(file.data(), file.size()) != webcache_fault::none) return 0;
    writing_sink sink;
    database.walk(sink);
    return 0;
}
