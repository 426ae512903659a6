#include "report/hv_case_db.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "support/needs.h"
#include "support/run_ravel.h"

#if __has_include(<sqlite3.h>)
#include <sqlite3.h>
#define RAVEL_TEST_SQLITE 1
#endif

#ifdef RAVEL_TEST_SQLITE
namespace {

// The first row of `sql`, its columns joined by "|", NULL as "NULL".
std::string first_row(const std::string& path, const std::string& sql) {
    sqlite3* db = nullptr;
    std::string row;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK && sqlite3_step(statement) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const unsigned char* text = sqlite3_column_text(statement, i);
            row += (i ? "|" : "") + (text ? std::string(reinterpret_cast<const char*>(text)) : "NULL");
        }
    } else {
        row = std::string("error: ") + sqlite3_errmsg(db);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return row;
}

constexpr uint64_t filetime_2015_03_02_083000_250 = 130697586002500000ull;
constexpr hv::dos_pair dos_2015_03_09_083000 = {0x4669, 0x43C0};

activity_record url_row() {
    activity_record row;
    row.signature = {'U', 'R', 'L', ' '};
    row.offset = 20480;
    row.url = "http://www.example.com/";
    row.source_file = "Content.IE5/index.dat";
    row.last_modified = filetime_2015_03_02_083000_250;
    row.last_access = filetime_2015_03_02_083000_250;
    row.expires = dos_2015_03_09_083000;
    row.allocated = 1;
    return row;
}

}  // namespace

// What the writer makes of the rows that the real containers seldom hold: a local stamp, a LEAK's
// DOS access stamp, a REDR with no stamps, answers not known, and an input that couldn't be read.
TEST(CaseDatabase, RowsBecomeTypedEntriesAndTheirEvents) {
    RAVEL_NEEDS(case_database::offered() ? "" : "built without libsqlite3 (RAVEL_SQLITE)");
    // Central European time, with no zone files needed: the local stamp's event is an hour earlier in UTC.
    const char* zone = std::getenv("TZ");
    const std::string saved = zone ? zone : "";
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    testsupport::temp_dir dir;
    const std::string path = dir.file("case.db");
    case_database database;
    ASSERT_TRUE(database.create(path, {"ravel ver: 0.93", "ravel -f x -sqlite case.db", "host"}));

    input_ref history;
    history.path = "History.IE5/MSHist012015030220150309/index.dat";
    database.begin_input(history);
    activity_record local = url_row();
    local.is_local_time = true;
    local.cache_category = cache_daily_history;
    database.write(local);
    activity_record leak = url_row();
    leak.signature = {'L', 'E', 'A', 'K'};
    leak.is_leak = true;
    leak.last_access = 0;
    leak.second_stamp = dos_2015_03_09_083000;
    leak.allocated = -1;
    database.write(leak);
    activity_record redr;
    redr.signature = {'R', 'E', 'D', 'R'};
    redr.is_redr = true;
    redr.url = "http://example.com/";
    redr.offset = 24576;
    database.write(redr);
    database.end_input({32768, cache_daily_history, 1, 3});
    input_ref missing;
    missing.path = "missing.dat";
    database.begin_input(missing);
    database.end_run(-1);
    zone ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
    tzset();
    ASSERT_TRUE(database.ok());

    const struct {
        const char* sql;
        const char* row;
    } cases[] = {
        // The local stamp is the stored calendar, no "Z"; its event is that calendar read in TZ.
        {"SELECT last_modified, last_modified_label, last_access, expires, expires_dos, type, allocated, cache_kind"
         " FROM entries WHERE id = 1",
         "2015-03-02T08:30:00.250|local|2015-03-02T08:30:00.250Z|2015-03-09T08:30:00.000Z|1181303744|URL|1|daily_history"},
        {"SELECT group_concat(datetime || ' ' || timestamp_desc || ' ' || time_label, ', ') FROM events WHERE entry_id = 1",
         "2015-03-02T07:30:00.250Z Last Modified local, 2015-03-02T08:30:00.250Z Last Accessed UTC, "
         "2015-03-09T08:30:00.000Z Expires UTC"},
        {"SELECT last_access, last_access_filetime, last_access_dos, type, allocated FROM entries WHERE id = 2",
         "2015-03-09T08:30:00.000Z|0|1181303744|LEAK|NULL"},
        {"SELECT last_modified, last_modified_filetime, last_access_dos, expires_dos, type, url, hash_listed,"
         " (SELECT count(*) FROM events WHERE entry_id = 3) FROM entries WHERE id = 3",
         "NULL|NULL|NULL|NULL|REDR|http://example.com/|NULL|0"},
        {"SELECT group_concat(path || ' ' || coalesce(size, 'NULL') || ' ' || coalesce(entries, 'NULL') || ' ' ||"
         " read_to_end, ', ') FROM sources",
         "History.IE5/MSHist012015030220150309/index.dat 32768 3 1, missing.dat NULL NULL 0"},
        {"SELECT status, ended IS NOT NULL, command_line FROM runs", "-1|1|ravel -f x -sqlite case.db"},
    };
    for (const auto& c : cases) EXPECT_EQ(first_row(path, c.sql), c.row) << c.sql;
}

#endif
