// A writer that keeps what it is given, for tests of the readers: the entries, and each input's
// reference and summary.
#pragma once
#include <vector>

#include "entries/hv_entry_writer.h"

namespace testsupport {

struct collect_rows : entry_writer {
    std::vector<activity_record> rows;
    std::vector<input_ref> inputs;
    std::vector<input_summary> summaries;

    void begin_input(const input_ref& input) override { inputs.push_back(input); }
    void write(const activity_record& entry) override { rows.push_back(entry); }
    void end_input(const input_summary& summary) override { summaries.push_back(summary); }
    bool ok() const override { return true; }
};

}  // namespace testsupport
