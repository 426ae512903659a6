#include "driver/hv_image_input.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "driver/hv_big_file.h"
#include "driver/hv_process_input.h"
#include "indexdat/hv_scan.h"
#include "foundation/hv_console.h"
#include "storage/hv_image.h"
#include "storage/hv_tsk.h"
#include "webcache/hv_ese_header.h"

namespace {

// Enough of a file's first bytes to know a container or a database by its header.
constexpr size_t head_bytes = ESE_FILE_HEADER::size;

// Whether a file found in the image goes through the file road: a container or a WebCache database, by
// its header.
bool read_as_file(const uint8_t* head, size_t size) {
    static const char container[] = "Client UrlCache";
    if (size >= sizeof container - 1 && std::memcmp(head, container, sizeof container - 1) == 0) return true;
    return looks_like_ese_database(head, size);
}

// A name that cache files go by: one whose first bytes won't read is worth a word.
bool cache_file_name(const std::string& path) {
    std::string name = path.substr(path.rfind('/') + 1);
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name == "index.dat" || name == "webcachev01.dat";
}

int8_t state_of(image_file_state state) {
    return state == image_file_state::deleted ? file_state_deleted : file_state_allocated;
}

// A row of a file read through its file system: its offset becomes the media position of its first
// byte, when the file's bytes lie on the media as they read.
class file_placement : public row_placement {
public:
    file_placement(const image_file& file, const std::string& path) : file_(file), path_(path) {}
    bool place(activity_record& row) override {
        const auto& runs = file_.runs;
        auto it = std::upper_bound(runs.begin(), runs.end(), row.offset,
                                   [](uint64_t at, const image_file_run& run) { return at < run.file_offset; });
        // A database's record has no offset of its own.
        if (!row.webcache.present && it != runs.begin() && row.offset - (it - 1)->file_offset < (it - 1)->length)
            row.offset = (it - 1)->media_offset + (row.offset - (it - 1)->file_offset);
        row.image_file = path_;
        row.file_state = state_of(file_.state);
        return true;
    }

private:
    const image_file& file_;
    const std::string& path_;
};

// Stretches of the media, each tied to a file, found by position.
struct media_span {
    uint64_t start, end;
    uint32_t file;
};

class span_index {
public:
    void add(uint64_t start, uint64_t length, uint32_t file) {
        if (length != 0) spans_.push_back({start, start + length, file});
    }
    void settle() {
        std::sort(spans_.begin(), spans_.end(), [](const media_span& a, const media_span& b) { return a.start < b.start; });
    }
    const media_span* find(uint64_t position) const {
        auto it = std::upper_bound(spans_.begin(), spans_.end(), position,
                                   [](uint64_t at, const media_span& span) { return at < span.start; });
        if (it == spans_.begin()) return nullptr;
        --it;
        return position < it->end ? &*it : nullptr;
    }

private:
    std::vector<media_span> spans_;
};

// The media scan's rows: one whose first byte lies in a file already read is dropped, as its file gave
// it; the rest are tied to the live file, else the deleted one, that holds that byte, else to none.
class media_placement : public row_placement {
public:
    std::vector<std::string> paths;
    std::vector<int8_t> states;
    span_index live, deleted, read;

    bool place(activity_record& row) override {
        if (read.find(row.offset) != nullptr) return false;
        const media_span* span = live.find(row.offset);
        if (span == nullptr) span = deleted.find(row.offset);
        if (span == nullptr) {
            row.file_state = file_state_unallocated;
            return true;
        }
        row.image_file = paths[span->file];
        row.file_state = states[span->file];
        return true;
    }
};

class image_walk : public image_walk_events {
public:
    image_walk(run_context& run, const input_ref& image, media_placement& media)
        : run_(run), scan_(run.scan), image_(image), media_(media) {}

    void file(const image_file& facts, const uint8_t* head, size_t head_size, image_reader& content) override {
        const uint32_t index = static_cast<uint32_t>(media_.paths.size());
        media_.paths.push_back(facts.path);
        media_.states.push_back(state_of(facts.state));
        span_index& spans = facts.state == image_file_state::deleted ? media_.deleted : media_.live;
        for (const image_file_run& run : facts.runs) spans.add(run.media_offset, run.length, index);
        // Deleted files are left to the media scan: their clusters may hold another file's bytes now.
        if (facts.state != image_file_state::allocated || !scan_.report_ok()) return;
        if (head_size == 0 && facts.size != 0 && cache_file_name(facts.path)) {
            tell("prob reading " + image_.path + ": " + facts.path +
                 ": its clusters could not be read, scanned as raw bytes");
            return;
        }
        if (!read_as_file(head, head_size)) return;

        // The file road's own entry point, as for -f of this file: its path gives the cache kind.
        // The media's rows keep the cache kind they had before the image's files were read.
        const uint32_t category = scan_.cache_category();
        input_ref file;
        file.road = road_kind::image;
        file.path = image_.path + ":" + facts.path;
        file.image = image_.path;
        scan_.begin_input(file);
        file_placement placement(facts, facts.path);
        scan_.set_placement(&placement);
        bool gave_rows = false;
        const bool read = scan_one_file(run_, file, content, gave_rows);
        scan_.end_input();
        scan_.set_cache_category(category);
        if (!read) {
            tell("prob reading " + image_.path + ": " + facts.path +
                 ": its clusters could not be read, scanned as raw bytes");
            return;
        }
        for (const image_file_run& run : facts.runs) media_.read.add(run.media_offset, run.length, index);
    }

    void no_file_system(uint64_t sector, bool whole) override {
        if (whole)
            tell("prob reading " + image_.path + ": no file system found, scanned as raw bytes");
        else
            tell("prob reading " + image_.path + ": volume at sector " + std::to_string(sector) +
                 ": no file system found, scanned as raw bytes");
    }

    void walked(uint64_t files) override {
        if (run_.show_progress) print_status("files walked: %d", static_cast<int>(std::min<uint64_t>(files, INT32_MAX)));
    }

private:
    void tell(const std::string& text) {
        clear_status_line(run_.show_progress);
        // Not print_error, which would drop the line end.
        write_console_error(text + "\n");
    }

    run_context& run_;
    input_scan& scan_;
    const input_ref& image_;
    media_placement& media_;
};

}  // namespace

bool scan_image_input(run_context& run, const input_ref& input) {
    {
        file_image probe;
        if (!probe.open(input.path)) {
            write_console_error("prob opening " + input.path + " for read, aborting\n");
            return false;
        }
    }
    tsk_image image;
    std::string reason;
    if (!image.open(input.path, reason)) {
        write_console_error("prob reading " + input.path + ": " + reason + "\n");
        return false;
    }
    return scan_open_image(run, input, image);
}

bool scan_open_image(run_context& run, const input_ref& input, tsk_image& image) {
    media_placement media;
    image_walk walk(run, input, media);
    image.walk(walk, head_bytes);
    clear_status_line(run.show_progress);
    media.live.settle();
    media.deleted.settle();
    media.read.settle();

    // The media, as the device road reads a disk, named by the image alone.
    input_scan& scan = run.scan;
    scan.begin_input(input);
    scan.set_placement(&media);
    const bool result = scan_device(scan, image, false, run.threads, [&input]() -> std::unique_ptr<image_reader> {
        auto another = std::make_unique<tsk_image>();
        std::string reason;
        if (input.path.empty() || !another->open(input.path, reason)) return nullptr;
        return another;
    });
    scan.end_input();
    scan.set_placement(nullptr);
    return result;
}
