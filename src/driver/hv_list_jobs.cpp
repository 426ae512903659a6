#include "driver/hv_list_jobs.h"

#include <utility>

#include "foundation/hv_console.h"
#include "indexdat/hv_scan.h"

// What a job made, in the order it made it.
struct list_jobs::event {
    enum kind_t : uint8_t { said, begin, entry, end } kind = said;
    bool database = false;  // a row, beginning or end of the walk that fills the case database
    console_capture::target where = console_capture::error;
    std::string text;
    activity_record row;
    input_ref input;
    input_summary summary;
};

// A name of the list and what its parse made so far.
struct list_jobs::job {
    std::string name;
    std::deque<event> events;
    bool done = false;
    // The cache kind the input's path gave (0: none), for the inputs after it; rows of kind 0 take the
    // kind carried from the inputs before it.
    uint32_t category = 0;
};

namespace {

// The kind a worker's scan starts each job with: "the kind of the inputs before", known only in turn.
constexpr uint32_t carried_kind = 0;

}  // namespace

class list_jobs::list_capture : public console_capture {
public:
    explicit list_capture(list_jobs& jobs) : jobs_(jobs) {}
    void said(target where, const char* text, size_t size) override {
        event e;
        e.where = where;
        e.text.assign(text, size);
        jobs_.list_events_->events.push_back(std::move(e));
    }

private:
    list_jobs& jobs_;
};

// A thread with a scan of its own; its writers and its console put what a job makes into the job.
class list_jobs::worker : public console_capture {
public:
    worker(list_jobs& jobs, bool whole, const run_context& settings)
        : jobs_(jobs),
          report_(*this, false),
          database_(*this, true),
          scan_(report_, whole, jobs.database_ != nullptr ? &database_ : nullptr),
          // The -diags log's lines come to the job through the console's capture.
          run_{scan_, settings.show_progress, settings.diags, false, 1},
          thread_(&worker::work, this) {}
    ~worker() { thread_.join(); }

    void said(target where, const char* text, size_t size) override {
        event e;
        e.where = where;
        e.text.assign(text, size);
        put(std::move(e));
    }

private:
    // The writers of the job's rows: the report's and the case database's.
    class to_job : public entry_writer {
    public:
        to_job(worker& owner, bool database) : owner_(owner), database_(database) {}
        void begin_input(const input_ref& input) override {
            event e = made(event::begin);
            e.input = input;
            owner_.put(std::move(e));
        }
        void write(const activity_record& row) override {
            event e = made(event::entry);
            e.row = row;
            owner_.put(std::move(e));
        }
        void end_input(const input_summary& summary) override {
            event e = made(event::end);
            e.summary = summary;
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
    };

    void put(event&& e) {
        std::unique_lock<std::mutex> lock(jobs_.mutex_);
        // A job ahead of the one being handed on waits once it holds enough.
        jobs_.changed_.wait(lock, [&] {
            return job_->events.size() < held_events || jobs_.jobs_.front() == job_ || jobs_.stopping_;
        });
        if (e.kind == event::said && !job_->events.empty() && job_->events.back().kind == event::said &&
            job_->events.back().where == e.where)
            job_->events.back().text += e.text;
        else
            job_->events.push_back(std::move(e));
        jobs_.changed_.notify_all();
    }

    void work() {
        capture_console(this);
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(jobs_.mutex_);
                jobs_.changed_.wait(lock, [&] { return !jobs_.idle_.empty() || jobs_.stopping_; });
                if (jobs_.idle_.empty()) return;
                job_ = jobs_.idle_.front();
                jobs_.idle_.pop_front();
            }
            scan_.set_cache_category(carried_kind);
            jobs_.body_(run_, job_->name);
            std::lock_guard<std::mutex> lock(jobs_.mutex_);
            job_->category = scan_.cache_category();
            job_->done = true;
            jobs_.changed_.notify_all();
        }
    }

    list_jobs& jobs_;
    to_job report_, database_;
    input_scan scan_;
    run_context run_;
    std::shared_ptr<job> job_;
    std::thread thread_;
};

list_jobs::list_jobs(entry_writer& report, entry_writer* database, bool whole, const run_context& settings,
                     unsigned workers, job_body body)
    : report_(report),
      database_(database),
      diags_(settings.diags),
      body_(std::move(body)),
      list_said_(new list_capture(*this)),
      list_events_(std::make_shared<job>()) {
    for (unsigned i = 0; i < workers; ++i) workers_.emplace_back(new worker(*this, whole, settings));
}

list_jobs::~list_jobs() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        idle_.clear();
    }
    changed_.notify_all();
    workers_.clear();  // joins them
}

console_capture& list_jobs::list_console() { return *list_said_; }

void list_jobs::add(const std::string& name) {
    // Enough jobs queued to keep every worker busy while the oldest is handed on.
    while (jobs_.size() >= 2 * workers_.size() + 2) {
        hand_on_oldest();
        if (!ok()) return;
    }
    auto queued = std::make_shared<job>();
    queued->name = name;
    queued->events.swap(list_events_->events);
    std::lock_guard<std::mutex> lock(mutex_);
    jobs_.push_back(queued);
    idle_.push_back(queued);
    changed_.notify_all();
}

bool list_jobs::finish() {
    while (!jobs_.empty() && ok()) hand_on_oldest();
    if (!ok()) return false;
    for (event& e : list_events_->events) replay(e);
    list_events_->events.clear();
    return ok();
}

void list_jobs::hand_on_oldest() {
    const std::shared_ptr<job> oldest = jobs_.front();
    for (;;) {
        std::deque<event> batch;
        bool done = false;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            changed_.wait(lock, [&] { return !oldest->events.empty() || oldest->done; });
            batch.swap(oldest->events);
            done = oldest->done;
            changed_.notify_all();
        }
        for (event& e : batch) replay(e);
        if (done) break;
    }
    if (oldest->category != carried_kind) category_ = oldest->category;
    std::lock_guard<std::mutex> lock(mutex_);
    jobs_.pop_front();
    changed_.notify_all();
}

void list_jobs::replay(event& e) {
    entry_writer* writer = e.database ? database_ : &report_;
    switch (e.kind) {
        case event::said:
            if (e.where == console_capture::error) {
                write_console_error(e.text);
            } else if (e.where == console_capture::report) {
                write_console_report(e.text);
            } else if (diags_ != nullptr) {
                *diags_ << e.text;
                diags_->flush();
            }
            break;
        case event::begin:
            writer->begin_input(e.input);
            break;
        case event::entry:
            if (e.row.cache_category == carried_kind) {
                e.row.cache_category = category_;
                if (category_ == cache_daily_history) e.row.is_local_time = true;
            }
            writer->write(e.row);
            break;
        case event::end:
            if (e.summary.cache_category == carried_kind) e.summary.cache_category = category_;
            writer->end_input(e.summary);
            break;
    }
}
