#include "report/hv_case_db.h"

#include <cstring>
#include <ctime>

#include "report/hv_timeline.h"

namespace {

// Adding a column: one line in its table here, one placeholder and one bind in write().
const char schema[] =
    "CREATE TABLE runs ("
    " id INTEGER PRIMARY KEY, program TEXT NOT NULL, command_line TEXT NOT NULL, host TEXT NOT NULL,"
    " started TEXT NOT NULL, ended TEXT, status INTEGER);"
    "CREATE TABLE sources ("
    " id INTEGER PRIMARY KEY, run_id INTEGER NOT NULL REFERENCES runs(id), path TEXT NOT NULL, road TEXT NOT NULL,"
    " image TEXT, file_in_image TEXT, cache_kind TEXT, size INTEGER, containers INTEGER, entries INTEGER,"
    " read_to_end INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE entries ("
    " id INTEGER PRIMARY KEY, source_id INTEGER NOT NULL REFERENCES sources(id),"
    " last_modified TEXT, last_modified_label TEXT, last_modified_filetime INTEGER,"
    " last_access TEXT, last_access_filetime INTEGER, last_access_dos INTEGER,"
    " expires TEXT, expires_dos INTEGER, last_sync TEXT, last_sync_dos INTEGER,"
    " type TEXT NOT NULL, url TEXT NOT NULL, user TEXT NOT NULL, filename TEXT NOT NULL, file_size INTEGER NOT NULL,"
    " directory TEXT NOT NULL, use_count INTEGER NOT NULL, http_header TEXT NOT NULL, source TEXT NOT NULL,"
    " offset INTEGER, allocated INTEGER, hash_listed INTEGER, cache_kind TEXT NOT NULL,"
    // A WebCache database's record: its expiry and sync are FILETIMEs, and it has members of its own.
    " expires_filetime INTEGER, last_sync_filetime INTEGER, created TEXT, created_filetime INTEGER,"
    " post_check TEXT, post_check_filetime INTEGER, db_table TEXT, container TEXT, container_id INTEGER,"
    " entry_id INTEGER, partition_id TEXT, request_headers TEXT, redirect_url TEXT, flags INTEGER,"
    " entry_type INTEGER, sync_count INTEGER, exemption_delta INTEGER,"
    // A WebCache record image: where it was found, and its page (null for one carved or given by the library alone).
    " record_state TEXT, page INTEGER);"
    "CREATE TABLE events ("
    " id INTEGER PRIMARY KEY, entry_id INTEGER NOT NULL REFERENCES entries(id),"
    " source_id INTEGER NOT NULL REFERENCES sources(id), datetime TEXT NOT NULL, timestamp_desc TEXT NOT NULL,"
    " time_label TEXT NOT NULL);"
    // The jsonl timeline's members, event by event.
    "CREATE VIEW timeline AS SELECT ev.datetime, ev.timestamp_desc, en.type, en.url, en.user, en.filename,"
    " en.file_size, en.directory, en.use_count, en.http_header, en.source, en.offset, en.allocated, en.hash_listed,"
    " en.cache_kind, ev.time_label, ev.entry_id FROM events ev JOIN entries en ON en.id = ev.entry_id;";

// Write-ahead log: a commit per input costs no sync of the file, and a crash, even of the machine, leaves
// the database sound; at the end of the run the log is folded back in. Large pages for rows that hold
// whole HTTP headers.
const char pragmas[] = "PRAGMA page_size=16384; PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;";

// Built when the first input is committed: sorting its rows once costs less than keeping the indexes
// row by row, and later inputs find them in place.
const char indexes[] =
    "CREATE INDEX events_by_time ON events(datetime); CREATE INDEX events_by_entry ON events(entry_id);"
    "CREATE INDEX entries_by_url ON entries(url);";

std::string now_iso() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc));
}

// As FAT stores the pair: the date word high.
int64_t dos_value(const dos_stamp& pair) { return static_cast<int64_t>(uint32_t(pair.date_word) << 16 | pair.time_word); }

}  // namespace

bool case_database::create(const std::string& path, const run_facts& run) {
    ok_ = false;
    if (!db_.create(path) || !db_.exec(pragmas) ||
        !db_.exec("BEGIN") || !db_.exec(schema) || !prepare())
        return false;
    sqlite_statement* insert_run =
        db_.prepare("INSERT INTO runs (program, command_line, host, started) VALUES (?, ?, ?, ?)");
    if (insert_run == nullptr) return false;
    const std::string started = now_iso();
    insert_run->bind_text(1, run.program);
    insert_run->bind_text(2, run.command_line);
    insert_run->bind_text(3, run.host);
    insert_run->bind_text(4, started);
    if (!insert_run->run()) return false;
    run_id_ = db_.last_id();
    ok_ = db_.exec("COMMIT");
    return ok_;
}

bool case_database::prepare() {
    insert_source_ = db_.prepare("INSERT INTO sources (run_id, path, road, image) VALUES (?, ?, ?, ?)");
    update_source_ = db_.prepare(
        "UPDATE sources SET cache_kind = ?, size = ?, containers = ?, entries = ?, read_to_end = 1 WHERE id = ?");
    insert_entry_ = db_.prepare(
        "INSERT INTO entries VALUES (NULL, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?,"
        " ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert_event_ = db_.prepare("INSERT INTO events VALUES (NULL, ?, ?, ?, ?, ?)");
    end_run_ = db_.prepare("UPDATE runs SET ended = ?, status = ? WHERE id = ?");
    return insert_source_ && update_source_ && insert_entry_ && insert_event_ && end_run_;
}

// A failed write ends the database's part in the run: what was committed stays, the input open is
// rolled back by closing.
void case_database::fail() {
    ok_ = false;
    in_input_ = false;
}

void case_database::begin_input(const input_ref& input) {
    if (!ok_) return;
    const std::string source = input.source_text(), image = input.image_text();
    const char* road = road_name(input.road);
    if (in_input_) commit_input();
    if (!ok_ || !db_.exec("BEGIN")) return fail();
    in_input_ = true;
    insert_source_->bind_int(1, run_id_);
    insert_source_->bind_text(2, source);
    insert_source_->bind_text(3, road, std::strlen(road));
    if (image.empty())
        insert_source_->bind_null(4);
    else
        insert_source_->bind_text(4, image);
    if (!insert_source_->run()) return fail();
    source_id_ = db_.last_id();
}

void case_database::write(const activity_record& row) {
    if (!ok_ || !in_input_) return;
    sqlite_statement& entry = *insert_entry_;
    const webcache_row_facts& w = row.webcache;
    const bool stamped = !row.is_redr;  // a REDR entry has no stamps at all
    const bool dos_stamped = stamped && !w.present;
    timeline_stamp stamps[timeline_stamp::kinds];
    const size_t count = shown_stamps(row, stamps);
    char texts[timeline_stamp::kinds][32];
    size_t sizes[timeline_stamp::kinds] = {};
    for (size_t i = 0; i < count; ++i) {
        const timeline_stamp& s = stamps[i];
        sizes[s.kind] = static_cast<size_t>(put_iso_8601(texts[s.kind], s.ticks, !s.local) - texts[s.kind]);
    }
    int column = 0;
    auto text_or_null = [&](timeline_stamp::which kind) {
        if (sizes[kind] != 0)
            entry.bind_text(++column, texts[kind], sizes[kind]);
        else
            entry.bind_null(++column);
    };
    auto int_or_null = [&](bool known, int64_t value) {
        if (known)
            entry.bind_int(++column, value);
        else
            entry.bind_null(++column);
    };
    auto answer = [&](int8_t value) { int_or_null(value >= 0, value); };
    auto text = [&](const std::string& value) { entry.bind_text(++column, value); };

    entry.bind_int(++column, source_id_);
    text_or_null(timeline_stamp::last_modified);
    if (sizes[timeline_stamp::last_modified] != 0)
        entry.bind_text(++column, row.is_local_time ? "local" : "UTC", row.is_local_time ? 5 : 3);
    else
        entry.bind_null(++column);
    // The 64 bits as stored; a value past 2^63 reads as a negative number.
    int_or_null(stamped, static_cast<int64_t>(row.last_modified));
    text_or_null(timeline_stamp::last_access);
    int_or_null(stamped, static_cast<int64_t>(row.last_access));
    int_or_null(row.is_leak && !w.present, dos_value(row.second_stamp));
    text_or_null(timeline_stamp::expires);
    int_or_null(dos_stamped, dos_value(row.expires));
    text_or_null(timeline_stamp::last_sync);
    int_or_null(dos_stamped, dos_value(row.last_sync));
    const size_t type = type_size(row);
    entry.bind_text(++column, row.signature.data(), type);
    text(row.url);
    text(row.user);
    text(row.file_name);
    entry.bind_int(++column, static_cast<int64_t>(row.file_size));
    text(row.directory);
    entry.bind_int(++column, row.count);
    text(row.http_header);
    text(row.source_file);
    int_or_null(!w.present || w.has_offset, static_cast<int64_t>(row.offset));  // null: a record only the library gave
    answer(row.allocated);
    answer(row.hash_listed);
    const char* kind = cache_kind_name(row.cache_category);
    entry.bind_text(++column, kind, std::strlen(kind));
    auto member = [&](const std::string& value) {
        if (w.present)
            text(value);
        else
            entry.bind_null(++column);
    };
    int_or_null(w.present, static_cast<int64_t>(w.expires));
    int_or_null(w.present, static_cast<int64_t>(w.last_sync));
    text_or_null(timeline_stamp::created);
    int_or_null(w.present, static_cast<int64_t>(w.created));
    text_or_null(timeline_stamp::post_check);
    int_or_null(w.present, static_cast<int64_t>(w.post_check));
    member(w.table);
    member(w.container_name);
    int_or_null(w.present, static_cast<int64_t>(w.container_id));
    int_or_null(w.present, static_cast<int64_t>(w.entry_id));
    member(w.partition_id);
    member(w.request_headers);
    member(w.redirect_url);
    int_or_null(w.present, row.flags);
    int_or_null(w.present, w.type);
    int_or_null(w.present, w.sync_count);
    int_or_null(w.present, w.exemption_delta);
    if (w.record_state != nullptr)
        entry.bind_text(++column, w.record_state, std::strlen(w.record_state));
    else
        entry.bind_null(++column);
    int_or_null(w.record_state != nullptr && std::strcmp(w.record_state, "carved") != 0, static_cast<int64_t>(w.page));
    if (!entry.run()) return fail();
    const int64_t entry_id = db_.last_id();

    // The events are jsonl's: instants, a local stamp read in TZ.
    const size_t events = timeline_stamps(row, stamps);
    sqlite_statement& event = *insert_event_;
    for (size_t i = 0; i < events; ++i) {
        char when[32];
        const char* description = timeline_stamp::descriptions[stamps[i].kind];
        event.bind_int(1, entry_id);
        event.bind_int(2, source_id_);
        event.bind_text(3, when, static_cast<size_t>(put_iso_8601(when, stamps[i].ticks, true) - when));
        event.bind_text(4, description, std::strlen(description));
        event.bind_text(5, stamps[i].local ? "local" : "UTC", stamps[i].local ? 5 : 3);
        if (!event.run()) return fail();
    }
}

void case_database::end_input(const input_summary& facts) {
    if (!ok_ || !in_input_) return;
    const char* kind = cache_kind_name(facts.cache_category);
    update_source_->bind_text(1, kind, std::strlen(kind));
    update_source_->bind_int(2, static_cast<int64_t>(facts.size));
    update_source_->bind_int(3, facts.containers);
    update_source_->bind_int(4, static_cast<int64_t>(facts.rows));
    update_source_->bind_int(5, source_id_);
    if (!update_source_->run()) return fail();
    commit_input();
}

void case_database::commit_input() {
    in_input_ = false;
    if ((!indexed_ && !db_.exec(indexes)) || !db_.exec("COMMIT")) return fail();
    indexed_ = true;
}

void case_database::end_run(int status) {
    if (!ok_) return;
    if (in_input_) commit_input();
    const std::string ended = now_iso();
    end_run_->bind_text(1, ended);
    end_run_->bind_int(2, status);
    end_run_->bind_int(3, run_id_);
    // Back to a plain database file, with no journal beside it.
    if (!end_run_->run() || !db_.exec("PRAGMA journal_mode=DELETE")) fail();
    db_.close();
}
