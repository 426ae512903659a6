#include "driver/hv_big_file.h"

#include <cstdio>
#include <numeric>
#include <string>

#include "indexdat/hv_scan.h"
#include "foundation/hv_console.h"
#include "storage/hv_image.h"
#include "storage/hv_raw_disk.h"

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
    return disk.valid() && scan_device(run.scan, disk, true);
}

bool scan_device(input_scan& scan, image_reader& disk, bool padded) {
    scan.use_image(disk, true);
    const int64_t total = static_cast<int64_t>(disk.size());
    if (total < 1) {
        print_error("success\n");
        return true;
    }
    auto percent = [total](uint64_t position) { return device_percent(static_cast<int64_t>(position), total); };
    int64_t position = 0;
    uint32_t overlap = device_read_overlap;
    while (position < total) {
        // Grains that no file of a chain holds read as zeros, and zeros hold no signature: windows
        // wholly in them are passed over unread. Their percentage lines stay, from their positions.
        if (padded && overlap != 0) {
            const uint64_t stride = device_read_size - overlap;
            const uint64_t windows_left = (static_cast<uint64_t>(total - position) + stride - 1) / stride;
            const uint64_t skip = std::min(empty_windows(static_cast<uint64_t>(position), device_read_size, stride,
                                                         disk.next_data(static_cast<uint64_t>(position))),
                                           windows_left);
            if (skip != 0) {
                skipped_progress("percent done: %d", static_cast<uint64_t>(position), skip, stride, percent);
                position += static_cast<int64_t>(skip * stride);
                continue;
            }
        }
        // No test of show_progress here: -quiet doesn't silence this road.
        if (position % progress_divisor == 0) print_status("percent done: %d", percent(static_cast<uint64_t>(position)));
        uint32_t length = device_read_size;
        if (!padded && length > total - position) length = static_cast<uint32_t>(total - position);
        const uint8_t* bytes = view_or_read(disk, static_cast<uint64_t>(position), length, scan.buffer);
        tell_lost_ranges(disk);
        if (bytes != nullptr) {
            if (overlap > length) overlap = 0;  // and so it stays
            const int64_t next = position - overlap + device_read_size;
            scan.scan_buffer(bytes, length, static_cast<uint64_t>(position), static_cast<uint64_t>(next));
            position -= overlap;
        }
        // Also after a failed read: a read error skips 64 KiB, overlap and all.
        position += device_read_size;
    }
    print_error("success\n");
    return true;
}
