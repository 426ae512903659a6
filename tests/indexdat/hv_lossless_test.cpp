// The lossless decoding keeps every entry the default decoding reports: over containers with hostile
// field values, the real containers and their mutants, on the whole-file road and inside an image, every
// position with a default row has a -complete row, and every -complete row has its timeline events.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "driver/hv_big_file.h"
#include "driver/hv_process_input.h"
#include "indexdat/hv_scan.h"
#include "report/hv_report.h"
#include "storage/hv_image.h"
#include "support/builder_hostile.h"
#include "support/collect_rows.h"
#include "support/needs.h"
#include "support/read_csv.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

enum class road { whole_file, device, padded_device };
enum class form { complete, jsonl, body };

void scan_into(entry_writer& out, bool whole, const std::string& bytes, road r) {
    input_scan scan(out, whole);
    run_context run{scan, false};
    input_ref input;
    input.path = "case/History.IE5/index.dat";
    scan.begin_input(input);
    memory_image image(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    bool result = false;
    if (r == road::whole_file) {
        scan_file(run, input, image, result);
    } else {
        testing::internal::CaptureStderr();  // the device road's progress lines
        scan_device(scan, image, r == road::padded_device);
        testing::internal::GetCapturedStderr();
    }
    scan.end_input();
}

// The lossless report in form `f`, without its header row.
std::string report_of(const std::string& bytes, road r, form f) {
    report_settings settings;
    settings.header = false;
    settings.complete = true;
    if (f == form::jsonl) settings.timeline = timeline_form::jsonl;
    if (f == form::body) settings.timeline = timeline_form::body;
    std::ostringstream out;
    scan_into(*make_report_writer(out, settings), true, bytes, r);
    return out.str();
}

// Position -> how many of the row's four stamps the report shows (or events the timeline has).
using stamps_at = std::map<uint64_t, int>;

stamps_at default_rows(const std::string& bytes, road r) {
    collect_rows out;
    scan_into(out, false, bytes, r);
    stamps_at rows;
    for (const activity_record& row : out.rows) rows[row.offset] = 0;
    return rows;
}

stamps_at complete_rows(const std::string& report) {
    stamps_at rows;
    for (const csv_record& r : read_csv(report)) {
        if (r.size() != 22) return {{~0ull, -1}};  // a row that doesn't parse shows as a difference
        rows[std::stoull(r[17])] = !r[0].empty() + !r[2].empty() + !r[4].empty() + !r[6].empty();
    }
    return rows;
}

stamps_at timeline_rows(const std::string& report, const std::regex& offset) {
    stamps_at rows;
    std::istringstream in(report);
    std::smatch m;
    for (std::string line; std::getline(in, line);)
        if (std::regex_search(line, m, offset)) ++rows[std::stoull(m[1])];
    return rows;
}

// What the property finds wrong with `bytes`, "" when nothing.
std::string lossless_faults(const std::string& bytes, road r) {
    const stamps_at rows = default_rows(bytes, r);
    const stamps_at complete = complete_rows(report_of(bytes, r, form::complete));
    std::string faults;
    for (const auto& row : rows)
        if (!complete.count(row.first)) faults += "no -complete row at " + std::to_string(row.first) + "; ";
    stamps_at events;
    for (const auto& row : complete)
        if (row.second > 0) events.insert(row);
    if (timeline_rows(report_of(bytes, r, form::jsonl), std::regex("\"offset\":([0-9]+),")) != events)
        faults += "jsonl events differ from the -complete stamps; ";
    stamps_at lines = timeline_rows(report_of(bytes, r, form::body), std::regex(" at ([0-9]+)\\)\\|0\\|0\\|0\\|0\\|"));
    for (auto& line : lines) line.second = complete.count(line.first) ? complete.at(line.first) : -1;
    if (lines != complete) faults += "body lines differ from the -complete rows; ";
    return faults;
}

// Containers of the generator laid into an image at 512-byte boundaries, between stretches of zeros. Each
// declares its size, or a size that ends inside one of its entries.
std::string image_of(uint32_t first_seed, uint32_t count) {
    std::string image;
    for (uint32_t seed = first_seed; seed < first_seed + count; ++seed) {
        byte_image container = hostile_container(seed);
        const size_t declared = seed % 2 ? container.size() : std::min<size_t>(container.size(), 0x5000 + 40 + seed * 64);
        container.u32(28, static_cast<uint32_t>(declared));
        image += container.bytes();
        image.resize((image.size() + 511) / 512 * 512 + 512 * (seed % 3));
    }
    return image;
}

}  // namespace

TEST(Lossless, EveryDefaultRowHasItsCompleteRowAndEvents) {
    for (uint32_t seed = 0; seed < 2000; ++seed) {
        const std::string faults = lossless_faults(hostile_container(seed).bytes(), road::whole_file);
        ASSERT_EQ(faults, "") << "seed " << seed;
    }
    for (uint32_t first = 0; first < 400; first += 20) {
        // Padded as a VMDK chain's last read is, the image's end cuts an entry.
        std::string image = image_of(first, 20);
        const road r = first % 40 ? road::device : road::padded_device;
        if (r == road::padded_device) image.resize(image.size() - 600 - first);
        const std::string faults = lossless_faults(image, r);
        ASSERT_EQ(faults, "") << "image of seeds " << first << " on";
    }
}

TEST(Lossless, RealContainersAndTheirMutants) {
    RAVEL_NEEDS(missing_real_fixtures());
    for (const char* name : {"Content.IE5", "History.IE5", "deleted"}) {
        const std::string bytes = read_file(real_container(name));
        ASSERT_FALSE(bytes.empty()) << name;
        EXPECT_EQ(lossless_faults(bytes, road::whole_file), "") << name;
        for (uint32_t seed = 0; seed < 150; ++seed)
            ASSERT_EQ(lossless_faults(hostile_mutant(bytes, seed).bytes(), road::whole_file), "") << name << " " << seed;
    }
}
