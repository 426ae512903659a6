// What a reader of a damaged image lost: stretches that read as zeros because the input's own data was
// bad there. Kept in the reader's own units (an E01 chunk, a VMDK grain), each once however often it is
// read again, and handed out as byte ranges through image_reader::next_lost_range.
#pragma once
#include <cstdint>
#include <deque>
#include <map>
#include <utility>

class lost_ranges {
public:
    // Unit `index`, of `unit` bytes from index * unit but cut at `end`, is lost. Units already held are
    // not kept again; a unit that follows the last one not yet handed out joins its range.
    void note(uint64_t index, uint64_t unit, uint64_t end);
    bool holds(uint64_t index) const;
    // The oldest range not handed out yet; false when there is none.
    bool next(uint64_t& offset, uint64_t& length);
    void clear();

private:
    std::map<uint64_t, uint64_t> runs_;                  // lost units, first to end, neighbours merged
    std::deque<std::pair<uint64_t, uint64_t>> pending_;  // offset, length
};
