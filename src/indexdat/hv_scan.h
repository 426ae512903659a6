// The signature walk over the windows of an input; the roads (hv_process_input, hv_big_file) feed it.
#pragma once
#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include "entries/hv_activity.h"
#include "entries/hv_entry_writer.h"
#include "indexdat/hv_container.h"
#include "indexdat/hv_entry.h"

class image_reader;

// Where a row lies on an image road: its offset on the media, its file and state. False drops the row.
class row_placement {
public:
    virtual ~row_placement() = default;
    virtual bool place(activity_record& row) = 0;
};

// Rows in rising order of position, kept from input to input so that their texts keep their storage.
class held_rows {
public:
    size_t size() const { return count_; }
    activity_record& operator[](size_t i) { return rows_[i]; }
    // Takes `row` at the end; `row` gets a spare record in exchange.
    void take(activity_record& row);
    // Drops the first `n` rows.
    void drop_front(size_t n);
    void clear() { count_ = 0; }

private:
    std::vector<activity_record> rows_;
    size_t count_ = 0;
};

// The scan of a run's inputs, one at a time: the windows of an input go through scan_buffer in
// order, and its rows reach the report as soon as their order is settled.
class input_scan {
public:
    // Rows go to `report`, decoded as the lossless report has them when `whole`. With `database`, the
    // rows of each input also go there as the lossless decoding reads them, whatever the report's form.
    input_scan(entry_writer& report, bool whole, entry_writer* database = nullptr);
    ~input_scan();

    void begin_input(const input_ref& input);
    // The cache kind of the rows from now on; it outlasts the input (see entry_decoder).
    void set_cache_category(uint32_t category) {
        decoder_.cache_category = category;
        if (lossless_) lossless_->set_cache_category(category);
    }
    uint32_t cache_category() const { return decoder_.cache_category; }
    // The input's bytes, for the lossless report: its size bounds every entry, and on the image roads
    // (`find_containers`) a container found in it is read through it.
    void use_image(image_reader& image, bool find_containers);
    // Every row of this input goes through `placement` before it is written; null for none.
    void set_placement(row_placement* placement) {
        placement_ = placement;
        if (lossless_) lossless_->set_placement(placement);
    }
    // Whole-file road: the container's directory names, read from the whole file; rows get them.
    void use_directory_table(const uint8_t* buffer, uint32_t size);
    // Decodes every signature of the window [base, base + length) on its 128-byte grid, from base + 128
    // to the last position 5 bytes short of the end. A position that already has a row keeps it: the
    // first decoding wins. Rows below `next_base`, where the next window starts, are written; the
    // rest wait for it. WebCache record images anywhere in the window become "carved" rows among them.
    // True when at least one signature was met, whatever became of it, or a record was carved.
    bool scan_buffer(const uint8_t* buffer, uint32_t length, uint64_t base, uint64_t next_base);
    // The end of the input: what waits is written, and the header row if it is still pending.
    void end_input();
    // A row made elsewhere than in the windows (a database's record), written as it comes: `fill(row,
    // whole)` makes it as this scan's decoding has it, and again for the walk that fills the database.
    template <class Fill>
    void write_record(Fill&& fill) {
        fill(record_, decoder_.whole);
        deliver(record_);
        if (lossless_) lossless_->write_record(fill);
    }
    // False once the report stream or the database has failed: nothing more will reach it.
    bool report_ok() const { return writer_->ok() && (!lossless_ || lossless_->report_ok()); }
    // Rows of the input so far, written or waiting.
    uint64_t rows() const { return rows_ + waiting_.size() + next_waiting_.size(); }

    std::vector<uint8_t> buffer;  // what a reader can't lend is read here, input after input

private:
    // The row to the writer, placed first on the image road; false from the placement drops it.
    void deliver(activity_record& row);

    // A container the lossless report found, and the stretch of the input it holds.
    struct container_span {
        uint64_t start = 0, end = 0;
        container_facts facts;
    };
    // The lossless report's walk of a window: only the positions that start in it, from its first byte.
    bool scan_whole_entries(const uint8_t* buffer, uint32_t length, uint64_t base, uint64_t next_base);
    void find_container(const uint8_t* bytes, uint32_t length, uint64_t position);
    const container_span* container_at(uint64_t position);
    void emit(activity_record& row);
    void write(activity_record& row);
    void settle_names();
    void note_block_count_rewrite(uint64_t position);

    entry_writer* writer_;
    std::unique_ptr<writer_pair> both_;  // the report and the database, of the lossless decoding
    entry_decoder decoder_;
    activity_record row_, record_;
    held_rows waiting_, next_waiting_;
    std::vector<activity_record> carved_;  // the window's carved WebCache rows, in offset order
    uint64_t next_base_ = UINT64_MAX;
    uint64_t rows_ = 0;
    image_reader* image_ = nullptr;
    row_placement* placement_ = nullptr;
    uint64_t input_size_ = 0;
    bool find_containers_ = false;
    std::vector<container_span> containers_;  // found so far in this input, the latest last
    INDEX_DAT_RECORD container_;
    bool have_names_ = false;
    bool names_settled_ = true;
    uint64_t names_end_ = 0;  // past this, no decoding reaches the name bytes
    uint32_t containers_found_ = 0;  // container headers the lossless walk read in this input
    std::unique_ptr<input_scan> lossless_;
};
