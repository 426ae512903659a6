#include "storage/hv_lost_ranges.h"

#include <algorithm>
#include <iterator>

bool lost_ranges::holds(uint64_t index) const {
    auto after = runs_.upper_bound(index);
    return after != runs_.begin() && index < std::prev(after)->second;
}

void lost_ranges::note(uint64_t index, uint64_t unit, uint64_t end) {
    if (holds(index)) return;
    uint64_t run_end = index + 1;
    auto after = runs_.find(run_end);
    if (after != runs_.end()) {
        run_end = after->second;
        runs_.erase(after);
    }
    auto before = runs_.lower_bound(index);
    if (before != runs_.begin() && std::prev(before)->second == index)
        std::prev(before)->second = run_end;
    else
        runs_.emplace(index, run_end);

    const uint64_t begin = index * unit;
    const uint64_t length = std::min(unit, end - begin);
    if (!pending_.empty() && pending_.back().first + pending_.back().second == begin)
        pending_.back().second += length;
    else
        pending_.emplace_back(begin, length);
}

bool lost_ranges::next(uint64_t& offset, uint64_t& length) {
    if (pending_.empty()) return false;
    offset = pending_.front().first;
    length = pending_.front().second;
    pending_.pop_front();
    return true;
}

void lost_ranges::clear() {
    runs_.clear();
    pending_.clear();
}
