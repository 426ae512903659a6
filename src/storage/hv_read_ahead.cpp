#include "storage/hv_read_ahead.h"

#include <sched.h>

#include <algorithm>
#include <utility>

read_ahead::read_ahead(image_reader& own, std::vector<std::unique_ptr<image_reader>> workers, size_t depth)
    : own_(own), readers_(std::move(workers)) {
    // Every worker a run of its own ahead, and one slot more than can be asked: the window last taken
    // keeps its bytes until the next take().
    slots_.resize(std::max<size_t>(1, readers_.size() * batch * std::max<size_t>(depth, 1)) + 2);
    for (size_t i = 0; i < readers_.size(); ++i) threads_.emplace_back(&read_ahead::work, this, i);
}

read_ahead::~read_ahead() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    asked_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

void read_ahead::request(uint64_t offset, size_t length) {
    std::lock_guard<std::mutex> lock(mutex_);
    slot& s = slots_[requested_ % slots_.size()];
    s.sequence = requested_++;
    s.offset = offset;
    s.length = length;
    s.asked = true;
    s.done = s.ok = s.lost = false;
    if (!threads_.empty()) asked_.notify_all();
}

const uint8_t* read_ahead::take() {
    slot* s = nullptr;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        s = &slots_[taken_ % slots_.size()];
        if (!threads_.empty()) done_.wait(lock, [&] { return s->done; });
        s->asked = false;
        ++taken_;
    }
    if (!threads_.empty() && s->ok && !s->lost) return s->bytes.data();
    return view_or_read(own_, s->offset, s->length, own_bytes_);
}

void read_ahead::drop() {
    std::unique_lock<std::mutex> lock(mutex_);
    // Reads under way finish first: a worker's next window is then always one not yet asked for.
    for (uint64_t sequence = taken_; sequence < requested_; ++sequence) {
        slot& s = slots_[sequence % slots_.size()];
        if (!threads_.empty()) done_.wait(lock, [&] { return s.done; });
        s.asked = false;
    }
    taken_ = requested_;
}

void read_ahead::work(size_t worker) {
    image_reader& reader = *readers_[worker];
    // Runs of `batch` windows a worker: neighbouring windows share their edges' chunks, which the
    // worker's own handle then has at hand.
    for (uint64_t sequence = worker * batch;; sequence += (sequence % batch == batch - 1) ? (readers_.size() - 1) * batch + 1 : 1) {
        slot& s = slots_[sequence % slots_.size()];
        std::unique_lock<std::mutex> lock(mutex_);
        asked_.wait(lock, [&] { return stopping_ || (s.asked && s.sequence == sequence); });
        if (stopping_) return;
        const uint64_t offset = s.offset;
        const size_t length = s.length;
        lock.unlock();
        s.bytes.resize(length);
        const bool ok = reader.read(offset, s.bytes.data(), length);
        bool lost = false;
        for (uint64_t at = 0, size = 0; reader.next_lost_range(at, size);) lost = true;
        lock.lock();
        s.ok = ok;
        s.lost = lost;
        s.done = true;
        done_.notify_all();
    }
}

unsigned usable_cores() {
#if defined(__linux__)
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return static_cast<unsigned>(CPU_COUNT(&set));
#endif
    const unsigned n = std::thread::hardware_concurrency();
    return n > 0 ? n : 1;
}
