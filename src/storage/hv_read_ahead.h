// Windows of an image read ahead on worker threads, each through a reader of its own, while the scan
// takes them in the order they were asked for: the work of the image's own format (libewf inflating
// and checking chunks, a VMDK's grains, libtsk's image layer) runs on every core, and the scan, its
// rows and its messages stay on one thread, in one order, whatever the number of workers.
#pragma once
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "storage/hv_image.h"

class read_ahead {
public:
    // One worker for each reader of `workers` (none: every read is made by take(), on the caller's
    // thread, through `own`); each worker reads runs of `batch` windows, at most `depth` runs ahead.
    read_ahead(image_reader& own, std::vector<std::unique_ptr<image_reader>> workers, size_t depth = 1);
    ~read_ahead();
    read_ahead(const read_ahead&) = delete;
    read_ahead& operator=(const read_ahead&) = delete;

    // Room for another request: a read is asked at most this far ahead of take().
    bool has_room() const { return requested_ - taken_ + 1 < slots_.size(); }
    // Asks for `length` bytes at `offset`, after those already asked for.
    void request(uint64_t offset, size_t length);
    // The bytes of the oldest request not yet taken, valid until the next take() or drop(); null when
    // they could not be read. A worker's read that met damage (image_reader::next_lost_range) is read
    // again here, through `own`, so that every loss is told by the one reader, in order and once.
    const uint8_t* take();
    // Forgets every request not yet taken (the caller's plan changed).
    void drop();
    size_t workers() const { return threads_.size(); }

private:
    struct slot {
        uint64_t sequence = 0, offset = 0;
        size_t length = 0;
        bool asked = false, done = false, ok = false, lost = false;
        std::vector<uint8_t> bytes;
    };
    void work(size_t worker);

    static constexpr size_t batch = 8;

    image_reader& own_;
    std::vector<std::unique_ptr<image_reader>> readers_;
    std::vector<slot> slots_;
    std::vector<uint8_t> own_bytes_;
    std::vector<std::thread> threads_;
    mutable std::mutex mutex_;
    std::condition_variable asked_, done_;
    uint64_t requested_ = 0, taken_ = 0;
    bool stopping_ = false;
};

// How many threads the process may run on: the CPUs of its affinity mask, at least 1.
unsigned usable_cores();
