// -sqlite read back with the sqlite3 tool: the entries are the -complete rows field by field, their
// raw stamps the ones the texts were read from, the events those of the jsonl timeline; a run killed
// between inputs leaves a sound database with the inputs it finished; a path that can't be written
// ends the run before any input is read.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>

#include "support/builder_vmdk.h"
#include "support/images.h"
#include "support/needs.h"
#include "support/read_csv.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {


// What sqlite3 prints for `sql` over `db`, as CSV with plain line ends.
std::string query(const std::string& db, const std::string& sql) {
    temp_dir dir;
    write_file(dir.file("q.sql"), ".mode csv\n.separator , \"\\n\"\n" + sql + "\n");
    std::system(("sqlite3 " + quoted(db) + " < " + quoted(dir.file("q.sql")) + " > " + quoted(dir.file("out")) +
                 " 2>&1").c_str());
    return read_file(dir.file("out"));
}

// The -complete columns from the typed ones, with the report's default date and time forms.
const char complete_columns[] =
    "SELECT coalesce(substr(last_modified, 1, 10), ''), coalesce(substr(last_modified, 12, 12) || ' ' ||"
    " last_modified_label, ''), coalesce(substr(last_access, 1, 10), ''), coalesce(substr(last_access, 12, 12) ||"
    " ' UTC', ''), coalesce(substr(expires, 1, 10), ''), coalesce(substr(expires, 12, 12) || ' UTC', ''),"
    " coalesce(substr(last_sync, 1, 10), ''), coalesce(substr(last_sync, 12, 12) || ' UTC', ''),"
    " CASE type WHEN 'URL' THEN 'URL ' ELSE type END, url, user, filename, file_size, directory, use_count,"
    " http_header, source, offset, CASE allocated WHEN 1 THEN 'yes' WHEN 0 THEN 'no' ELSE '' END,"
    " CASE hash_listed WHEN 1 THEN 'yes' WHEN 0 THEN 'no' ELSE '' END, '', '' FROM entries ORDER BY id;";

// Rows whose raw values don't give their texts, or whose numbers are not stored as integers.
const char raw_mismatches[] =
    "SELECT count(*) FROM entries WHERE"
    " strftime('%Y-%m-%dT%H:%M:%S', (last_modified_filetime - 116444736000000000) / 10000000, 'unixepoch')"
    "   IS NOT substr(last_modified, 1, 19) AND last_modified IS NOT NULL"
    " OR strftime('%Y-%m-%dT%H:%M:%S', (last_access_filetime - 116444736000000000) / 10000000, 'unixepoch')"
    "   IS NOT substr(last_access, 1, 19) AND last_access_filetime != 0"
    " OR printf('%04d-%02d-%02dT%02d:%02d:%02d', 1980 + (expires_dos >> 25), expires_dos >> 21 & 15,"
    "   expires_dos >> 16 & 31, expires_dos >> 11 & 31, expires_dos >> 5 & 63, (expires_dos & 31) * 2)"
    "   IS NOT substr(expires, 1, 19) AND expires IS NOT NULL"
    " OR printf('%04d-%02d-%02dT%02d:%02d:%02d', 1980 + (last_sync_dos >> 25), last_sync_dos >> 21 & 15,"
    "   last_sync_dos >> 16 & 31, last_sync_dos >> 11 & 31, last_sync_dos >> 5 & 63, (last_sync_dos & 31) * 2)"
    "   IS NOT substr(last_sync, 1, 19) AND last_sync IS NOT NULL"
    " OR typeof(file_size) != 'integer' OR typeof(use_count) != 'integer' OR typeof(offset) != 'integer'"
    " OR typeof(allocated) NOT IN ('integer', 'null') OR typeof(hash_listed) NOT IN ('integer', 'null');";

// (datetime, timestamp_desc) of each jsonl line, as CSV rows.
std::string jsonl_events(const std::string& jsonl) {
    static const std::regex head("\\{\"datetime\":\"([^\"]+)\",\"timestamp_desc\":\"([^\"]+)\".*");
    std::string rows;
    std::smatch m;
    for (size_t from = 0, end; (end = jsonl.find('\n', from)) != std::string::npos; from = end + 1) {
        const std::string line = jsonl.substr(from, end - from);
        if (std::regex_match(line, m, head)) rows += m[1].str() + "," + m[2].str() + "\n";
    }
    return rows;
}

// Runs `args` with -complete and -sqlite, then with -timeline jsonl, and compares the database with both.
void expect_database_matches(const std::vector<std::string>& args, const std::string& input, size_t least_rows) {
    temp_dir dir;
    const std::string db = dir.file("case.db");
    // An earlier file and a journal left beside it are replaced, not applied.
    write_file(db, "not a database");
    write_file(db + "-journal", "stale");
    std::vector<std::string> with = args;
    with.insert(with.end(), {"-complete", "-sqlite", db});
    const run_result r = run_ravel(with, input);
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<csv_record> report = complete_rows(r.out);
    ASSERT_GE(report.size(), least_rows);
    // The database adds to the run: the report is the one without it.
    std::vector<std::string> without = args;
    without.push_back("-complete");
    EXPECT_EQ(after_preamble(run_ravel(without, input).out), after_preamble(r.out));
    EXPECT_EQ(read_csv(query(db, complete_columns)), report);
    EXPECT_EQ(query(db, raw_mismatches), "0\n");
    EXPECT_EQ(query(db, "PRAGMA integrity_check;"), "ok\n");
    EXPECT_EQ(query(db, "SELECT count(*) FROM runs WHERE status = 0 AND ended IS NOT NULL;"), "1\n");

    // Beside the default report the database is the same: the lossless rows, and the report is unchanged.
    const std::string beside = dir.file("beside.db");
    std::vector<std::string> plain = args;
    plain.insert(plain.end(), {"-sqlite", beside});
    const run_result p = run_ravel(plain, input);
    EXPECT_EQ(p.status, 0) << p.err;
    EXPECT_EQ(after_preamble(p.out), after_preamble(run_ravel(args, input).out));
    EXPECT_EQ(read_csv(query(beside, complete_columns)), report);

    std::vector<std::string> timeline = args;
    timeline.insert(timeline.end(), {"-timeline", "jsonl"});
    EXPECT_EQ(read_csv(query(db, "SELECT datetime, timestamp_desc FROM events ORDER BY id;")),
              read_csv(jsonl_events(run_ravel(timeline, input).out)));
    // The index serves a search by time.
    EXPECT_NE(query(db, "EXPLAIN QUERY PLAN SELECT * FROM events WHERE datetime > '2015';").find("events_by_time"),
              std::string::npos);
}

}  // namespace

TEST(SqliteE2E, EntriesAreTheCompleteRowsOnTheFileAndImageRoads) {
    RAVEL_NEEDS(missing_real_fixtures());
    RAVEL_NEEDS(missing_tools({"sqlite3"}, "sqlite3"));
    const std::string list =
        real_container("Content.IE5") + "\n" + real_container("History.IE5") + "\n" + real_container("deleted") + "\n";
    expect_database_matches({"-pipe"}, list, 60);

    // A container inside a disk image: the image road, offsets on the disk.
    temp_dir dir;
    ASSERT_TRUE(sparse_vmdk(1 << 20, 128, 512).write(65536, read_file(real_container("Content.IE5"))).save(dir.file("disk.vmdk")));
    expect_database_matches({"-vmdk", dir.file("disk.vmdk")}, "", 30);
}

TEST(SqliteE2E, SourcesTellEachInput) {
    RAVEL_NEEDS(missing_real_fixtures());
    RAVEL_NEEDS(missing_tools({"sqlite3"}, "sqlite3"));
    temp_dir dir;
    const std::string db = dir.file("case.db");
    const run_result r = run_ravel({"-pipe", "-timeline", "body", "-sqlite", db},
                                   real_container("History.IE5") + "\n" + dir.file("missing.dat") + "\n");
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(query(db, "SELECT path = '" + real_container("History.IE5") + "', road, image, cache_kind, size, containers,"
                        " entries = (SELECT count(*) FROM entries WHERE source_id = sources.id), read_to_end"
                        " FROM sources ORDER BY id;"),
              "1,file,,history,32768,1,1,1\n0,file,,,,,,0\n");
}

TEST(SqliteE2E, AKilledRunKeepsTheInputsItFinished) {
    RAVEL_NEEDS(missing_real_fixtures());
    RAVEL_NEEDS(missing_tools({"sqlite3"}, "sqlite3"));
    temp_dir dir;
    const std::string db = dir.file("case.db"), fifo = dir.file("second.dat");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int names[2];
    ASSERT_EQ(pipe(names), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(names[0], 0);
        close(names[1]);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(null, 2);
        // One thread: the files are then opened one after another, and the FIFO's open tells the moment.
        execl(ravel_binary().c_str(), "ravel", "-pipe", "-complete", "-quiet", "-sqlite", db.c_str(), "-threads", "1",
              nullptr);
        _exit(127);
    }
    close(names[0]);
    // The second name is a FIFO: this open returns once ravel has opened it, that is once the first
    // input is committed and the second one's transaction has begun.
    const std::string list = real_container("Content.IE5") + "\n" + fifo + "\n";
    ASSERT_EQ(write(names[1], list.data(), list.size()), static_cast<ssize_t>(list.size()));
    const int writer = open(fifo.c_str(), O_WRONLY);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(writer);
    close(names[1]);
    ASSERT_TRUE(WIFSIGNALED(status));

    EXPECT_EQ(query(db, "PRAGMA integrity_check;"), "ok\n");
    const size_t rows = complete_rows(run_ravel({"-f", real_container("Content.IE5"), "-complete"}).out).size();
    EXPECT_EQ(query(db, "SELECT count(*), sum(read_to_end) FROM sources;"), "1,1\n");
    EXPECT_EQ(query(db, "SELECT count(*) FROM entries;"), std::to_string(rows) + "\n");
    EXPECT_EQ(query(db, "SELECT count(*) FROM runs WHERE ended IS NULL;"), "1\n");
}

// A full disk, without root: a file-size limit makes a write of the database fail in the middle of the
// run; the run stops there, and the database holds the inputs finished before.
TEST(SqliteE2E, AFailedDatabaseWriteKeepsTheInputsFinishedBefore) {
    RAVEL_NEEDS(missing_real_fixtures());
    RAVEL_NEEDS(missing_tools({"sqlite3"}, "sqlite3"));
    temp_dir dir;
    const std::string db = dir.file("case.db"), list = dir.file("list"), err = dir.file("err");
    std::string names;
    for (int i = 0; i < 100; ++i) names += real_container("Content.IE5") + "\n";
    ASSERT_TRUE(write_file(list, names));
    // The limit's signal ignored, so that the write fails instead of ending the run.
    const int status = std::system(("trap '' XFSZ; ulimit -f 1000; exec " + quoted(ravel_binary()) +
                                    " -quiet -complete -out /dev/null -sqlite " + quoted(db) + " -pipe < " +
                                    quoted(list) + " 2> " + quoted(err)).c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 255);
    EXPECT_TRUE(std::regex_match(read_file(err), std::regex("prob writing database " + db + ": [^\n]+\n"))) << read_file(err);

    EXPECT_EQ(query(db, "PRAGMA integrity_check;"), "ok\n");
    const std::vector<csv_record> kept = read_csv(query(db, "SELECT count(*), sum(read_to_end), sum(entries),"
                                                            " (SELECT count(*) FROM entries) FROM sources;"));
    ASSERT_EQ(kept.size(), 1u);
    const int inputs = std::atoi(kept[0][0].c_str());
    EXPECT_GT(inputs, 0);
    EXPECT_LT(inputs, 100);
    EXPECT_EQ(kept[0][1], kept[0][0]);
    EXPECT_EQ(kept[0][2], kept[0][3]);
}

TEST(SqliteE2E, ADatabaseThatCantBeWrittenEndsTheRunFirst) {
    temp_dir dir;
    write_file(dir.file("index.dat"), "");
    // A missing folder; a folder, and a device, which are not replaced.
    for (const std::string& db : {dir.file("no/case.db"), dir.path(), std::string("/dev/null")}) {
        const run_result r = run_ravel({"-quiet", "-f", dir.file("index.dat"), "-complete", "-out", dir.file("r.csv"), "-sqlite", db});
        EXPECT_EQ(r.status, 255);
        EXPECT_TRUE(std::regex_match(r.err, std::regex("prob opening database " + db + " for writing: [^\n]+\n"))) << r.err;
        // No input read: no report file and no message about the input.
        EXPECT_EQ(read_file(dir.file("r.csv")), "");
        EXPECT_EQ(r.out.find("probs parsing"), std::string::npos);
    }
}
