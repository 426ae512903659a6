#include "driver/hv_big_file.h"

#include <cstdio>
#include <deque>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "indexdat/hv_scan.h"
#include "foundation/hv_console.h"
#include "storage/hv_image.h"
#include "storage/hv_raw_disk.h"
#include "storage/hv_read_ahead.h"

namespace {

int big_file_percent(uint64_t offset, uint64_t total) {
    double widened = static_cast<float>(offset);
    return static_cast<int>(widened * 100.0 / static_cast<double>(total));
}

int device_percent(int64_t position, int64_t total) {
    return static_cast<int>(static_cast<float>(position) * 100.0 / static_cast<float>(total));
}

// How many windows of `window` bytes, `stride` apart from `position` on, hold nothing but zeros when
// the image's next data lies at `data`.
uint64_t empty_windows(uint64_t position, uint64_t window, uint64_t stride, uint64_t data) {
    return data < position + window ? 0 : (data - position - window) / stride + 1;
}

// The percentage lines of `count` windows passed over unread, `stride` apart from `position`: the
// same lines as if each had been read. The percentage never falls as the position rises, so the
// lines come in runs of one text, each found by halving and written in blocks: a huge empty disk
// gives its lines in seconds.
template <class Percent>
void skipped_progress(const char* format, uint64_t position, uint64_t count, uint64_t stride, Percent percent) {
    const uint64_t period = progress_divisor / std::gcd<uint64_t>(stride, progress_divisor);
    uint64_t first = 0;
    while (first < count && first < progress_divisor && (position + first * stride) % progress_divisor != 0) ++first;
    if (first == count || (position + first * stride) % progress_divisor != 0) return;
    const uint64_t lines = (count - first + period - 1) / period;  // line k stands at first + k * period
    auto percent_of = [&](uint64_t k) { return percent(position + (first + k * period) * stride); };
    constexpr size_t block_size = 65536;
    std::string line, block;
    for (uint64_t k = 0; k < lines;) {
        const int value = percent_of(k);
        uint64_t low = k + 1, high = lines;  // the run ends at the first line of another value
        while (low < high) {
            const uint64_t middle = low + (high - low) / 2;
            if (percent_of(middle) == value) low = middle + 1; else high = middle;
        }
        line.clear();
        append_status_line(line, format, value);
        const uint64_t per_block = std::max<uint64_t>(1, block_size / line.size());
        uint64_t left = low - k;
        block.clear();
        for (uint64_t i = 0; i < std::min(left, per_block); ++i) block += line;
        for (; left >= per_block; left -= per_block) write_console_error(block);
        if (left != 0) write_console_error(block.substr(0, left * line.size()));
        k = low;
    }
}

// Stretches that the input's own damage turned into zeros, each on a line of its own: the status
// line is wiped first, as print_error does, but the line end stays, so the next percentage line
// can't overwrite the message.
void tell_lost_ranges(image_reader& disk) {
    uint64_t offset = 0, length = 0;
    while (disk.next_lost_range(offset, length)) {
        if (length == 0) continue;
        char text[96];
        std::snprintf(text, sizeof text, "prob reading media bytes %llu to %llu, read as zeros\n",
                      static_cast<unsigned long long>(offset), static_cast<unsigned long long>(offset + length - 1));
        write_console_error(long_erase_text + std::string(text));
    }
}

}  // namespace

bool scan_big_file(run_context& run, image_reader& file) {
    input_scan& scan = run.scan;
    scan.use_image(file, true);
    const uint64_t total = file.size();
    uint32_t chunk = big_file_chunk_size, overlap = big_file_chunk_overlap;
    if (total < chunk) {
        chunk = static_cast<uint32_t>(total);
        overlap = 0;
    }
    const uint64_t stride = chunk - overlap;
    auto percent = [total](uint64_t offset) { return big_file_percent(offset, total); };
    uint32_t length = chunk;
    uint64_t position = 0;
    // Chunks of `chunk` bytes, each starting `overlap` bytes before the last one ended; at the file's
    // end the last `overlap` bytes come once more, alone, as the chunked reader of the file layer has it.
    do {
        // A stretch that the file holds as a hole reads as zeros: passed over, while chunks are whole.
        if (length == chunk && overlap != 0 && total - position >= chunk) {
            const uint64_t whole_chunks_left = (total - position - chunk) / stride;
            const uint64_t skip = std::min(empty_windows(position, chunk, stride, file.next_data(position)),
                                           whole_chunks_left);
            if (skip != 0) {
                if (run.show_progress) skipped_progress("percent: %d", position, skip, stride, percent);
                position += skip * stride;
                continue;
            }
        }
        if (length > total - position) length = static_cast<uint32_t>(total - position);
        const uint8_t* bytes = view_or_read(file, position, length, scan.buffer);
        if (bytes == nullptr) break;  // the chunks so far stand
        if (overlap >= length) overlap = 0;  // and so it stays
        const uint64_t next = position - overlap + length;
        scan.scan_buffer(bytes, length, position, next);
        if (run.show_progress && position % progress_divisor == 0) print_status("percent: %d", percent(position));
        position = next;
        if (position + length > total) length = static_cast<uint32_t>(total - position);
    } while (position < total && static_cast<int32_t>(length) > 0);
    clear_status_line(run.show_progress);
    return true;
}

bool scan_device_input(run_context& run, const input_ref& input) {
    if (input.road == road_kind::partition) {
        RAW_DISK_IO disk(input.path, false, false, true, 1);
        return disk.valid() && scan_device(run.scan, disk, false);
    }
    RAW_DISK_IO disk(input.vmdk_files, false, false);
    return disk.valid() && scan_device(run.scan, disk, true, run.threads, [&input]() -> std::unique_ptr<image_reader> {
        auto another = std::make_unique<RAW_DISK_IO>(input.vmdk_files, false, false);
        return another->valid() ? std::move(another) : nullptr;
    });
}

namespace {

// The device road's windows, planned ahead of their reads: where each read starts and how long it
// is, and the runs of empty windows passed over. The plan takes every read as good; a read that
// fails moves the road on by a whole read, overlap and all, and the plan starts again from there.
class device_plan {
public:
    struct step {
        bool skip = false;
        uint64_t position = 0;
        uint64_t count = 0;   // a skip's windows
        uint32_t length = 0;  // a read's bytes
        uint32_t overlap = 0;  // before the step
    };

    device_plan(image_reader& disk, bool padded) : disk_(disk), padded_(padded), total_(static_cast<int64_t>(disk.size())) {}

    bool next(step& out) {
        if (position_ >= total_) return false;
        out = step();
        out.position = static_cast<uint64_t>(position_);
        out.overlap = overlap_;
        // Grains that no file of a chain holds read as zeros, and zeros hold no signature: windows
        // wholly in them are passed over unread. Their percentage lines stay, from their positions.
        if (padded_ && overlap_ != 0) {
            const uint64_t stride = device_read_size - overlap_;
            const uint64_t windows_left = (static_cast<uint64_t>(total_ - position_) + stride - 1) / stride;
            const uint64_t skip = std::min(empty_windows(static_cast<uint64_t>(position_), device_read_size, stride,
                                                         disk_.next_data(static_cast<uint64_t>(position_))),
                                           windows_left);
            if (skip != 0) {
                out.skip = true;
                out.count = skip;
                position_ += static_cast<int64_t>(skip * stride);
                return true;
            }
        }
        uint32_t length = device_read_size;
        if (!padded_ && length > total_ - position_) length = static_cast<uint32_t>(total_ - position_);
        out.length = length;
        if (overlap_ > length) overlap_ = 0;  // and so it stays
        position_ += device_read_size - overlap_;
        return true;
    }
    // The read of `failed` gave nothing: the road goes on a whole read further.
    void restart_after(const step& failed) {
        position_ = static_cast<int64_t>(failed.position) + device_read_size;
        overlap_ = failed.overlap;
    }
    int64_t total() const { return total_; }

private:
    image_reader& disk_;
    bool padded_;
    int64_t total_;
    int64_t position_ = 0;
    uint32_t overlap_ = device_read_overlap;
};

}  // namespace

bool scan_device(input_scan& scan, image_reader& disk, bool padded, unsigned threads, const reader_opener& open_another) {
    scan.use_image(disk, true);
    device_plan plan(disk, padded);
    const int64_t total = plan.total();
    if (total < 1) {
        print_error("success\n");
        return true;
    }
    auto percent = [total](uint64_t position) { return device_percent(static_cast<int64_t>(position), total); };
    // Every worker reads through a handle of its own: the libraries' handles are not shared. One thread
    // scans, and takes no more than some sixteen workers can give (each handle of libewf holds some MiB).
    constexpr unsigned most_workers = 16;
    std::vector<std::unique_ptr<image_reader>> workers;
    for (unsigned i = 0; threads > 1 && open_another && i < std::min(threads, most_workers); ++i) {
        std::unique_ptr<image_reader> reader = open_another();
        if (!reader) break;
        workers.push_back(std::move(reader));
    }
    read_ahead reads(disk, std::move(workers));
    std::deque<device_plan::step> planned;
    device_plan::step step;
    for (;;) {
        while (reads.has_room() && plan.next(step)) {
            if (!step.skip) reads.request(step.position, step.length);
            planned.push_back(step);
        }
        if (planned.empty()) break;
        step = planned.front();
        planned.pop_front();
        if (step.skip) {
            skipped_progress("percent done: %d", step.position, step.count, device_read_size - step.overlap, percent);
            continue;
        }
        // No test of show_progress here: -quiet doesn't silence this road.
        if (step.position % progress_divisor == 0) print_status("percent done: %d", percent(step.position));
        const uint8_t* bytes = reads.take();
        tell_lost_ranges(disk);
        if (bytes == nullptr) {  // a read error skips 64 KiB, overlap and all
            reads.drop();
            planned.clear();
            plan.restart_after(step);
            continue;
        }
        const uint32_t overlap = step.overlap > step.length ? 0 : step.overlap;
        scan.scan_buffer(bytes, step.length, step.position, step.position - overlap + device_read_size);
    }
    print_error("success\n");
    return true;
}
