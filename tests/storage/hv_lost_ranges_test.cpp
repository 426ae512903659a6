#include "storage/hv_lost_ranges.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

std::vector<std::pair<uint64_t, uint64_t>> handed_out(lost_ranges& lost) {
    std::vector<std::pair<uint64_t, uint64_t>> ranges;
    for (uint64_t offset = 0, length = 0; lost.next(offset, length);) ranges.emplace_back(offset, length);
    return ranges;
}

}  // namespace

// Units of 100 bytes on an input of 950: each unit once, neighbours found in a row joined, the last cut
// at the end; a unit met again, even after its range was handed out, is not told again.
TEST(LostRanges, EachUnitOnceNeighboursJoined) {
    lost_ranges lost;
    lost.note(3, 100, 950);
    lost.note(4, 100, 950);
    lost.note(3, 100, 950);
    EXPECT_EQ(handed_out(lost), (std::vector<std::pair<uint64_t, uint64_t>>{{300, 200}}));
    lost.note(4, 100, 950);
    lost.note(5, 100, 950);  // after a handed-out range: a range of its own
    lost.note(9, 100, 950);
    lost.note(1, 100, 950);
    lost.note(2, 100, 950);  // joins 1 among the pending, and the runs on both sides
    EXPECT_EQ(handed_out(lost), (std::vector<std::pair<uint64_t, uint64_t>>{{500, 100}, {900, 50}, {100, 200}}));
    for (uint64_t unit = 0; unit < 10; ++unit) EXPECT_EQ(lost.holds(unit), unit != 0 && unit != 6 && unit != 7 && unit != 8) << unit;
    lost.clear();
    EXPECT_FALSE(lost.holds(3));
    EXPECT_TRUE(handed_out(lost).empty());
}
