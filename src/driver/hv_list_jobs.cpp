#include "driver/hv_list_jobs.h"

#include <sstream>
#include <utility>

#include "foundation/hv_console.h"
#include "indexdat/hv_scan.h"

// What a job made, in the order it made it.
struct list_jobs::event {
    // said: a console, report-stream or log line; made: rows the report's copy wrote; begin, entry, end:
    // what a writer is handed (the case database's, or the report's when it has no copy).
    // next: a name of the list begins, where one thread would ask whether the report can still be written.
    enum kind_t : uint8_t { said, made, begin, entry, end, next } kind = said;
    bool database = false;
    bool once = false;  // said only if no job before said it (run_context::say_once)
    console_capture::target where = console_capture::error;
    std::string text;
    std::unique_ptr<activity_record> row;
    input_ref input;
    input_summary summary;
};

// A run of names of the list, and what their parse made so far.
struct list_jobs::job {
    std::vector<std::string> names;
    std::vector<std::vector<event>> before;  // what reading the list said before each name
    std::deque<event> events;
    bool done = false;
    // The cache kind the input's path gave (0: none), for the inputs after it.
    uint32_t category = 0;
};

namespace {

// The kind a worker's scan starts each job with: "the kind of the inputs before", found when a row needs it.
constexpr uint32_t carried_kind = 0;

// A job's events are handed over in batches, and its rows' text in pieces of about this size.
constexpr size_t batch_events = 64;
constexpr size_t made_piece = 16 << 10;

}  // namespace

class list_jobs::list_capture : public console_capture {
public:
    explicit list_capture(list_jobs& jobs) : jobs_(jobs) {}
    void said(target where, const char* text, size_t size) override {
        event e;
        e.where = where;
        e.text.assign(text, size);
        jobs_.list_said_.push_back(std::move(e));
    }

private:
    list_jobs& jobs_;
};

// A thread with a scan of its own. Its writers and its console put what a job makes into the job: the
// report's rows as text its copy of the report's writer wrote, the case database's as entries.
class list_jobs::worker : public console_capture {
public:
    worker(list_jobs& jobs, bool whole, const run_context& settings)
        : jobs_(jobs),
          report_copy_(jobs.report_.copy_to(made_)),
          report_(*this, false),
          database_(*this, true),
          scan_(report_, whole, jobs.database_ != nullptr ? &database_ : nullptr),
          // The -diags log's lines come to the job through the console's capture.
          run_{scan_, settings.show_progress, settings.diags, 1},
          thread_(&worker::work, this) {
        run_.hand_on_once = [this](const std::string& text) {
            put_made();
            event e;
            e.once = true;
            e.text = text;
            put(std::move(e));
        };
    }
    ~worker() { thread_.join(); }

    void said(target where, const char* text, size_t size) override {
        put_made();  // the report's stream may be the one said to
        event e;
        e.where = where;
        e.text.assign(text, size);
        put(std::move(e));
    }

private:
    // What the scan hands the report or the case database.
    class to_job : public entry_writer {
    public:
        to_job(worker& owner, bool database) : owner_(owner), database_(database) {}
        void begin_input(const input_ref& input) override {
            owner_.put_made();
            event e = made(event::begin);
            e.input = input;
            owner_.put(std::move(e));
        }
        void write(const activity_record& row) override {
            const activity_record* as_written = &row;
            if (row.cache_category == carried_kind) {
                fixed_ = row;
                fixed_.cache_category = owner_.carried();
                if (fixed_.cache_category == cache_daily_history) fixed_.is_local_time = true;
                as_written = &fixed_;
            }
            if (!database_ && owner_.report_copy_) {
                owner_.report_copy_->write(*as_written);
                if (owner_.made_.tellp() >= static_cast<std::streamoff>(made_piece)) owner_.put_made();
                return;
            }
            event e = made(event::entry);
            e.row.reset(new activity_record(*as_written));
            owner_.put(std::move(e));
        }
        void end_input(const input_summary& summary) override {
            owner_.put_made();
            event e = made(event::end);
            e.summary = summary;
            if (database_ && e.summary.cache_category == carried_kind) e.summary.cache_category = owner_.carried();
            owner_.put(std::move(e));
        }
        // The run's writers are the run thread's to ask: a job is parsed whole, and dropped if need be.
        bool ok() const override { return true; }

    private:
        event made(event::kind_t kind) const {
            event e;
            e.kind = kind;
            e.database = database_;
            return e;
        }
        worker& owner_;
        bool database_;
        activity_record fixed_;
    };

    // The cache kind of the inputs before this job, in list order: known once every job before it is parsed.
    uint32_t carried() {
        if (carried_known_) return carried_;
        std::unique_lock<std::mutex> lock(jobs_.mutex_);
        auto before_done = [&] {
            for (const auto& j : jobs_.jobs_) {
                if (j == job_) return true;
                if (!j->done) return false;
            }
            return true;
        };
        jobs_.room_.wait(lock, before_done);
        carried_ = jobs_.category_;
        for (const auto& j : jobs_.jobs_) {
            if (j == job_) break;
            if (j->category != carried_kind) carried_ = j->category;
        }
        carried_known_ = true;
        return carried_;
    }

    // The rows' text written so far, as one event.
    void put_made() {
        if (made_.tellp() <= 0) return;
        event e;
        e.kind = event::made;
        e.text = made_.str();
        made_.str(std::string());
        put(std::move(e));
    }

    void put(event&& e) {
        if (e.kind == event::said && !e.once && !pending_.empty() && pending_.back().kind == event::said &&
            !pending_.back().once && pending_.back().where == e.where)
            pending_.back().text += e.text;
        else
            pending_.push_back(std::move(e));
        if (pending_.size() >= batch_events) hand_over(false);
    }

    // The pending events to the job, and with `done` the job's end.
    void hand_over(bool done) {
        if (done) put_made();
        std::unique_lock<std::mutex> lock(jobs_.mutex_);
        // A job ahead of the one being handed on waits once it holds enough.
        jobs_.room_.wait(lock, [&] {
            return job_->events.size() < held_events || jobs_.jobs_.front() == job_ || jobs_.stopping_;
        });
        for (event& e : pending_) job_->events.push_back(std::move(e));
        pending_.clear();
        if (done) {
            job_->category = scan_.cache_category();
            job_->done = true;
            jobs_.room_.notify_all();  // a later job may wait for the kind this one leaves
        }
        jobs_.ready_.notify_all();
    }

    void work() {
        capture_console(this);
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(jobs_.mutex_);
                jobs_.room_.wait(lock, [&] { return !jobs_.idle_.empty() || jobs_.stopping_; });
                if (jobs_.idle_.empty()) return;
                job_ = jobs_.idle_.front();
                jobs_.idle_.pop_front();
            }
            carried_known_ = false;
            scan_.set_cache_category(carried_kind);
            for (size_t i = 0; i < job_->names.size(); ++i) {
                event next;
                next.kind = event::next;
                put(std::move(next));
                for (event& e : job_->before[i]) put(std::move(e));
                jobs_.body_(run_, job_->names[i]);
            }
            hand_over(true);
        }
    }

    list_jobs& jobs_;
    std::ostringstream made_;
    std::unique_ptr<entry_writer> report_copy_;
    to_job report_, database_;
    input_scan scan_;
    run_context run_;
    std::shared_ptr<job> job_;
    std::vector<event> pending_;
    bool carried_known_ = false;
    uint32_t carried_ = cache_unknown;
    std::thread thread_;
};

list_jobs::list_jobs(entry_writer& report, entry_writer* database, bool whole, const run_context& settings,
                     unsigned workers, job_body body)
    : report_(report),
      database_(database),
      diags_(settings.diags),
      body_(std::move(body)),
      list_capture_(new list_capture(*this)) {
    for (unsigned i = 0; i < workers; ++i) workers_.emplace_back(new worker(*this, whole, settings));
}

list_jobs::~list_jobs() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        idle_.clear();
    }
    room_.notify_all();
    workers_.clear();  // joins them
}

console_capture& list_jobs::list_console() { return *list_capture_; }

void list_jobs::add(const std::string& name) {
    if (!open_) open_ = std::make_shared<job>();
    open_->names.push_back(name);
    open_->before.emplace_back(std::move(list_said_));
    list_said_.clear();
    // Names go to the workers in runs: a file is parsed in less time than two threads take to wake.
    if (open_->names.size() >= names_per_job) queue_open();
}

void list_jobs::queue_open() {
    // Enough jobs queued to keep every worker busy while the oldest is handed on.
    while (jobs_.size() >= 2 * workers_.size() + 2 && !stopped_) hand_on_oldest();
    if (stopped_) return;
    std::lock_guard<std::mutex> lock(mutex_);
    jobs_.push_back(open_);
    idle_.push_back(open_);
    open_.reset();
    room_.notify_all();
}

bool list_jobs::finish() {
    if (open_) queue_open();
    while (!jobs_.empty() && !stopped_) hand_on_oldest();
    if (stopped_) return false;
    for (event& e : list_said_) replay(e);
    list_said_.clear();
    return true;
}

void list_jobs::hand_on_oldest() {
    const std::shared_ptr<job> oldest = jobs_.front();
    while (!stopped_) {
        std::deque<event> batch;
        bool done = false;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            ready_.wait(lock, [&] { return !oldest->events.empty() || oldest->done; });
            batch.swap(oldest->events);
            done = oldest->done;
            room_.notify_all();
        }
        for (event& e : batch) {
            // Once the report can't be written, the names left would be parsed for nothing.
            if (e.kind == event::next && !ok()) stopped_ = true;
            if (stopped_) break;
            replay(e);
        }
        if (done) break;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (oldest->category != carried_kind) category_ = oldest->category;
    jobs_.pop_front();
    room_.notify_all();
}

void list_jobs::replay(event& e) {
    entry_writer* writer = e.database ? database_ : &report_;
    switch (e.kind) {
        case event::said:
            if (e.once && std::exchange(said_once_, true)) break;
            if (e.where == console_capture::error) {
                write_console_error(e.text);
            } else if (e.where == console_capture::report) {
                write_console_report(e.text);
            } else if (diags_ != nullptr) {
                *diags_ << e.text;
                diags_->flush();
            }
            break;
        case event::made:
            report_.write_made(e.text);
            break;
        case event::begin:
            writer->begin_input(e.input);
            break;
        case event::entry:
            writer->write(*e.row);
            break;
        case event::end:
            writer->end_input(e.summary);
            break;
        case event::next:
            break;
    }
}
