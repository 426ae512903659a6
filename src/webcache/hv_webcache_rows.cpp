#include "webcache/hv_webcache_rows.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <vector>

#include "entries/hv_entry_text.h"
#include "foundation/hv_console.h"
#include "foundation/hv_string.h"
#include "storage/hv_image.h"
#include "webcache/hv_ese_header.h"
#include "webcache/hv_ese_long_values.h"
#include "webcache/hv_ese_page.h"
#include "webcache/hv_webcache_images.h"

namespace {

// A stamp not set, in a database as in an index.dat entry.
constexpr uint64_t unset_stamp = 0xDEADBEEFDEADBEEFull;

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
    facts.created = record.creation_time == unset_stamp ? 0 : record.creation_time;
    row.source_file = source;
    row.offset = 0;
    row.allocated = 1;  // a record of a live table
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
    auto stamp = [](uint64_t raw) { return raw == unset_stamp ? 0 : raw; };
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

void carve_webcache_rows(bool whole, const std::string& source, image_reader* input, const uint8_t* bytes, size_t size,
                         size_t start_limit, uint64_t base, std::vector<activity_record>& rows) {
    rows.clear();
    // Starts are looked for below the limit only: the window's overlap is the next window's to report.
    const size_t limit = std::min(start_limit, size);
    const size_t starts_end = std::min(size, limit + ESE_CONTAINER_RECORD::header_size - 1);
    size_t at = next_container_header(bytes, starts_end, 0);
    if (at >= limit) return;
    static const std::vector<webcache_container> none;
    container_lookup containers(none);
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
        make_image_row(whole, source, rows.back(), image, containers.of(image.container_id), base + at, 0);
    }
}

container_lookup::container_lookup(const std::vector<webcache_container>& listed) {
    for (const webcache_container& c : listed) by_id_.emplace(c.id, &c);
}

const webcache_container& container_lookup::of(uint64_t id) {
    auto found = by_id_.find(id);
    if (found != by_id_.end()) return *found->second;
    webcache_container& made = unlisted_[id];
    made.id = id;
    return made;
}

void make_image_row(bool whole, const std::string& source, activity_record& row, webcache_image& image,
                    const webcache_container& container, uint64_t offset, uint64_t page) {
    image.record.container = &container;
    fill_activity_from_webcache(row, image.record, whole, source);
    row.offset = offset;
    row.allocated = image.state == webcache_record_state::live ? 1 : 0;
    row.webcache.has_offset = true;
    row.webcache.record_state = webcache_record_state_name(image.state);
    row.webcache.page = page;
}
