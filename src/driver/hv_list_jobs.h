// -pipe and -enumdir on several threads: runs of names of the list are jobs that a worker parses with
// a scan of its own; what the job makes (its rows, its inputs' beginnings and ends, and what it says on
// the console, the report stream and the -diags log) is kept in order, and the run's thread hands it
// on in list order, job after job, as one thread would have made it. Memory stays bounded: a job
// ahead of the one being handed on waits once it holds `held_events` events (rows' text in pieces of
// 16 KiB), and at most two jobs a worker wait.
#pragma once
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "driver/hv_process_input.h"
#include "entries/hv_entry_writer.h"
#include "foundation/hv_console.h"

class list_jobs {
public:
    // What a worker does with one name of the list, through the run context it is given.
    using job_body = std::function<void(run_context& run, const std::string& name)>;

    // `report` and `database` (may be null) are the run's writers; `settings` gives the roads'
    // settings, `whole` the decoding; `workers` threads parse.
    list_jobs(entry_writer& report, entry_writer* database, bool whole, const run_context& settings,
              unsigned workers, job_body body);
    ~list_jobs();
    list_jobs(const list_jobs&) = delete;
    list_jobs& operator=(const list_jobs&) = delete;

    // Queues a name; while too many jobs wait, hands on the oldest first.
    void add(const std::string& name);
    // False once the report could not be written where one thread would have stopped reading the list.
    bool going() const { return !stopped_; }
    // What the run's thread said while it read the list: it goes out before the next job's.
    console_capture& list_console();
    // Hands on every job queued. False once a writer has failed (the jobs left are dropped).
    bool finish();

    struct event;
    struct job;

private:
    class worker;
    class list_capture;
    // Hands on the oldest job, waiting for its events as they come.
    void hand_on_oldest();
    void queue_open();
    void replay(event& e);
    bool ok() const { return report_.ok() && (database_ == nullptr || database_->ok()); }

    entry_writer& report_;
    entry_writer* database_;
    std::ostream* diags_;
    job_body body_;
    std::vector<std::unique_ptr<worker>> workers_;
    std::unique_ptr<list_capture> list_capture_;
    std::vector<event> list_said_;          // what reading the list said since the last name
    std::shared_ptr<job> open_;             // names not yet queued
    std::deque<std::shared_ptr<job>> jobs_;  // not handed on yet, oldest first
    std::deque<std::shared_ptr<job>> idle_;  // not taken by a worker yet, oldest first
    uint32_t category_ = cache_unknown;    // the cache kind rows get, carried from input to input
    bool said_once_ = false;                // the run's once-said line is said (a list is the run's one road)
    std::mutex mutex_;
    std::condition_variable room_;   // workers wait here: for a job, or for room in theirs
    std::condition_variable ready_;  // the run's thread waits here: for the oldest job's events
    bool stopping_ = false;
    bool stopped_ = false;  // the report failed: nothing more is handed on
    static constexpr size_t names_per_job = 16;
    static constexpr size_t held_events = 256;
};
