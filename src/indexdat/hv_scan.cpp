#include "indexdat/hv_scan.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <utility>

#include "webcache/hv_webcache_rows.h"
#include "storage/hv_image.h"

namespace {

constexpr uint64_t whole_entry_bytes = 10 * entry_block_size;  // more than the largest entry reported
constexpr uint64_t container_boundary = 512;
constexpr uint32_t container_word = 0x65696C43;  // "Clie", as a container's header begins
constexpr uint64_t container_read_limit = 32u << 20;  // a larger container's chain may not be read whole

}  // namespace

// ---- rows waiting for their order -------------------------------------------------------------

void held_rows::take(activity_record& row) {
    if (count_ == rows_.size()) rows_.emplace_back();
    std::swap(rows_[count_++], row);
}

void held_rows::drop_front(size_t n) {
    for (size_t i = n; i < count_; ++i) std::swap(rows_[i - n], rows_[i]);
    count_ -= n;
}

// ---- the scan -----------------------------------------------------------------------------------

input_scan::input_scan(entry_writer& report, bool whole, entry_writer* database) : writer_(&report), decoder_(whole) {
    if (database == nullptr) return;
    // The database holds the entries as the lossless decoding reads them: beside a report of another
    // form, a second walk of the same windows decodes them so and writes them there only.
    if (whole) {
        both_.reset(new writer_pair(report, *database));
        writer_ = both_.get();
    } else {
        lossless_.reset(new input_scan(*database, true));
    }
}

input_scan::~input_scan() = default;

void input_scan::begin_input(const input_ref& input) {
    decoder_.source = input.source_text();
    waiting_.clear();
    next_waiting_.clear();
    next_base_ = UINT64_MAX;
    rows_ = 0;
    have_names_ = false;
    names_settled_ = true;
    names_end_ = 0;
    image_ = nullptr;
    placement_ = nullptr;
    input_size_ = 0;
    find_containers_ = false;
    containers_.clear();
    containers_found_ = 0;
    writer_->begin_input(input);
    if (lossless_) lossless_->begin_input(input);
}

void input_scan::use_image(image_reader& image, bool find_containers) {
    if (lossless_) lossless_->use_image(image, find_containers);
    image_ = &image;
    input_size_ = image.size();
    find_containers_ = find_containers;
}

void input_scan::use_directory_table(const uint8_t* buffer, uint32_t size) {
    if (lossless_) lossless_->use_directory_table(buffer, size);
    if (decoder_.whole) {
        // Read whole, the file is its container.
        containers_.emplace_back();
        containers_.back().end = size;
        containers_.back().facts.read(buffer, size);
        containers_found_ += containers_.back().facts.known;
        return;
    }
    have_names_ = read_directory_table(container_, buffer, size) != 0;
    names_end_ = INDEX_DAT_RECORD::at_first_directory_name +
                 uint64_t{INDEX_DAT_RECORD::directory_item_size} * container_.directory_names.size();
    names_settled_ = !have_names_;
}

// Why no entry is lost and none comes twice: consecutive windows share their overlap, and a window's
// stride is a multiple of 128, so every position of the grid is looked at in some window. An entry
// cut by a window's end is shorter than 10 blocks, so it starts in the overlap and is met again, whole,
// in the next window, unless the cut decoding already made a row, which then stands: the first
// decoding of a position wins. Positions rise within a window, and the next window decodes nothing
// below its own start, so a row below it is in its final place and is written at once; a row in the
// overlap waits until the next window has passed it.
//
// WebCache record images are carved from the window's every byte, not its grid: an image is reported by
// the window it starts in, [base, next_base), and one that may run past the window's end is read again
// from the input as far as an image can run (a page, 32 KiB), so no window's edge cuts or repeats one.
bool input_scan::scan_buffer(const uint8_t* buffer, uint32_t length, uint64_t base, uint64_t next_base) {
    if (lossless_) lossless_->scan_buffer(buffer, length, base, next_base);
    carve_webcache_rows(decoder_.whole, decoder_.source, image_, buffer, length,
                        static_cast<size_t>(std::min<uint64_t>(length, next_base - std::min(base, next_base))), base,
                        carved_);
    if (decoder_.whole) return scan_whole_entries(buffer, length, base, next_base);
    next_base_ = next_base;
    size_t waiting = 0, carved = 0;
    // The rows waiting from the last window and the carved ones below `position`, in offset order.
    auto emit_below = [&](uint64_t position) {
        for (;;) {
            const bool held = waiting < waiting_.size() && waiting_[waiting].offset < position;
            const bool cut = carved < carved_.size() && carved_[carved].offset < position;
            if (!held && !cut) return;
            if (held && (!cut || waiting_[waiting].offset <= carved_[carved].offset))
                emit(waiting_[waiting++]);
            else
                emit(carved_[carved++]);
        }
    };
    bool found = !carved_.empty();
    for (uint64_t at = entry_block_size; at + 4 < length; at += entry_block_size) {
        const uint32_t word = hv::le32(buffer, length, static_cast<size_t>(at));
        if (word != signature_url && word != signature_leak && word != signature_redr) continue;
        found = true;
        const uint64_t position = base + at;
        if (!names_settled_ && position + 4 >= names_end_) settle_names();
        emit_below(position);
        if (waiting < waiting_.size() && waiting_[waiting].offset == position) {
            emit(waiting_[waiting++]);
            continue;
        }
        if (decode_entry_at(row_, decoder_, buffer + at, static_cast<uint32_t>(length - at), position)) emit(row_);
        if (!names_settled_) note_block_count_rewrite(position);
    }
    emit_below(UINT64_MAX);
    std::swap(waiting_, next_waiting_);
    next_waiting_.clear();
    return found;
}

// Each position belongs to one window, the one it starts in, and every window holds at least ten blocks
// (the largest entry) behind each position it reports, or else the input's end: so every entry is
// decoded whole, once, wherever a window's edge falls. The input's first position is looked at too.
bool input_scan::scan_whole_entries(const uint8_t* buffer, uint32_t length, uint64_t base, uint64_t next_base) {
    const uint64_t report_end = std::min<uint64_t>(base + length, next_base);
    size_t carved = 0;
    auto write_carved_below = [&](uint64_t position) {
        for (; carved < carved_.size() && carved_[carved].offset < position; ++carved) {
            deliver(carved_[carved]);
        }
    };
    bool found = !carved_.empty();
    for (uint64_t at = 0; base + at < report_end && at + 4 <= length; at += entry_block_size) {
        const uint64_t position = base + at;
        const uint32_t word = hv::le32(buffer, length, static_cast<size_t>(at));
        if (word == container_word && find_containers_ && position % container_boundary == 0)
            find_container(buffer + at, length - static_cast<uint32_t>(at), position);
        if (word != signature_url && word != signature_leak && word != signature_redr) continue;
        found = true;
        const container_span* container = container_at(position);
        const uint64_t bound = std::min<uint64_t>(whole_entry_bytes, length - at);
        // Texts end with the input and with the container that holds the entry. An entry whose fixed part
        // runs past either (a container may declare less than it holds; a disk's last read is padded with
        // zeros) is read to the window's end, as the default decoding reads it, rather than lost.
        uint64_t limited = bound;
        if (image_ != nullptr) limited = std::min(limited, input_size_ - std::min(input_size_, position));
        if (container != nullptr) limited = std::min(limited, container->end - position);
        if (!decode_entry_at(row_, decoder_, buffer + at, static_cast<uint32_t>(limited), position) &&
            (limited == bound || !decode_entry_at(row_, decoder_, buffer + at, static_cast<uint32_t>(bound), position)))
            continue;
        if (container != nullptr) {
            const uint64_t inside = position - container->start;
            if (const std::string* name = directory_name_of(container->facts.record, row_.directory_index))
                row_.directory = *name;
            row_.allocated = static_cast<int8_t>(container->facts.allocated(inside));
            row_.hash_listed = static_cast<int8_t>(container->facts.hash_listed(inside));
        }
        write_carved_below(position);
        deliver(row_);
    }
    write_carved_below(UINT64_MAX);
    return found;
}

// A container's header on a 512-byte boundary: its bytes, as far as it declares them (and no further
// than the input, or than memory allows), are read through the input to answer for its entries.
void input_scan::find_container(const uint8_t* bytes, uint32_t length, uint64_t position) {
    static const char signature[] = "Client UrlCache";
    if (length < sizeof signature - 1 || std::memcmp(bytes, signature, sizeof signature - 1) != 0 || image_ == nullptr)
        return;
    const uint64_t declared = hv::le32(bytes, length, container_facts::at_declared_size);
    const uint64_t held = std::min<uint64_t>({declared, input_size_ - position, container_read_limit});
    if (held == 0) return;
    // Most containers lie inside the window that found them; the others are copied out of the input.
    // The header's first blocks hold the names and the bitmap; the rest is read only for a HASH chain.
    const uint8_t* read_from = bytes;
    uint64_t read_size = held;
    std::vector<uint8_t> copy;
    if (held > length) {
        copy.resize(static_cast<size_t>(std::min<uint64_t>(held, container_facts::first_block)));
        if (!image_->read(position, copy.data(), copy.size())) return;
        if (!container_facts::head_answers_all(copy.data(), copy.size(), held)) {
            copy.resize(static_cast<size_t>(held));
            if (!image_->read(position, copy.data(), copy.size())) return;
        }
        read_from = copy.data();
        read_size = copy.size();
    }
    containers_.emplace_back();
    containers_.back().start = position;
    containers_.back().end = position + std::min(declared, input_size_ - position);
    containers_.back().facts.read(read_from, static_cast<uint32_t>(read_size));
    containers_found_ += containers_.back().facts.known;
}

// The latest container found that holds `position`; those that end before it are dropped.
const input_scan::container_span* input_scan::container_at(uint64_t position) {
    size_t kept = 0;
    for (size_t i = 0; i < containers_.size(); ++i) {
        if (containers_[i].end > position) {
            if (kept != i) containers_[kept] = std::move(containers_[i]);
            ++kept;
        }
    }
    containers_.resize(kept);
    for (size_t i = containers_.size(); i-- > 0;)
        if (containers_[i].start <= position) return &containers_[i];
    return nullptr;
}

void input_scan::emit(activity_record& row) {
    if (row.offset < next_base_ && names_settled_)
        write(row);
    else
        next_waiting_.take(row);
}

void input_scan::write(activity_record& row) {
    if (have_names_) {
        if (const std::string* name = directory_name_of(container_, row.directory_index)) row.directory = *name;
    }
    deliver(row);
}

// The names are read after the walk: where the table runs into the first entries, a name shows the
// block count rewrite, and keeps doing so.
void input_scan::note_block_count_rewrite(uint64_t position) {
    const block_count_rewrite rewrite{position, decoder_.url_record.block_count_rewrite};
    if (rewrite.blocks == 0) return;
    for (uint64_t byte = position + 4; byte < position + 8; ++byte) {
        const uint64_t from_first = byte - INDEX_DAT_RECORD::at_first_directory_name;
        if (byte < INDEX_DAT_RECORD::at_first_directory_name || byte >= names_end_) continue;
        const uint64_t item = from_first / INDEX_DAT_RECORD::directory_item_size;
        const uint64_t within = from_first % INDEX_DAT_RECORD::directory_item_size;
        if (within < INDEX_DAT_RECORD::directory_name_size) {
            char& name_byte = container_.directory_names[item][within];
            name_byte = static_cast<char>(rewrite.seen(byte, static_cast<uint8_t>(name_byte)));
        }
    }
}

void input_scan::deliver(activity_record& row) {
    if (placement_ != nullptr && !placement_->place(row)) return;  // the image road ties it to its file
    writer_->write(row);
    ++rows_;
}

void input_scan::settle_names() {
    names_settled_ = true;
    size_t written = 0;
    while (written < next_waiting_.size() && next_waiting_[written].offset < next_base_) write(next_waiting_[written++]);
    next_waiting_.drop_front(written);
}

void input_scan::end_input() {
    if (!names_settled_) settle_names();
    next_base_ = UINT64_MAX;
    for (size_t i = 0; i < waiting_.size(); ++i) write(waiting_[i]);
    waiting_.clear();
    input_summary summary;
    summary.size = input_size_;
    summary.cache_category = decoder_.cache_category;
    summary.containers = containers_found_;
    summary.rows = rows_;
    writer_->end_input(summary);
    if (lossless_) lossless_->end_input();
}
