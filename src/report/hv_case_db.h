// -sqlite: the run written into a SQLite case database beside the report. A row for the run, one per
// input, one per entry as the lossless report decodes it, and one per set stamp as the jsonl timeline
// gives them. Each input is one transaction, so that a run cut short leaves the inputs it finished.
#pragma once
#include <cstdint>
#include <string>

#include "entries/hv_activity.h"
#include "entries/hv_entry_writer.h"
#include "storage/hv_sqlite.h"

class case_database : public entry_writer {
public:
    struct run_facts {
        std::string program, command_line, host;
    };
    static bool offered() { return sqlite_db::offered(); }

    // The file replaced by an empty database with its tables and the run's row, committed; false, with
    // error() saying why, when it can't be written.
    bool create(const std::string& path, const run_facts& run);
    // A new input, one transaction.
    void begin_input(const input_ref& input) override;
    void write(const activity_record& row) override;
    // The input's facts, and its transaction committed.
    void end_input(const input_summary& facts) override;
    // The run's end time and status; an input still open (it could not be read) is committed first.
    void end_run(int status);

    bool ok() const override { return ok_; }
    const std::string& error() const { return db_.error(); }

private:
    bool prepare();
    void fail();
    void commit_input();

    sqlite_db db_;
    bool ok_ = false;
    bool in_input_ = false;
    bool indexed_ = false;  // the indexes of events are made
    int64_t run_id_ = 0, source_id_ = 0;
    sqlite_statement* insert_source_ = nullptr;
    sqlite_statement* update_source_ = nullptr;
    sqlite_statement* insert_entry_ = nullptr;
    sqlite_statement* insert_event_ = nullptr;
    sqlite_statement* end_run_ = nullptr;
};
