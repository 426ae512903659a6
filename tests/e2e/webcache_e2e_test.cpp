// The IE10+ cache database on the file roads, end to end over the real sample: each record that the
// library's own export tool gives from a readable Container_N table is a -complete row with the same
// URL, access time, count, size and file name; what the library can't read and the dirty state are told;
// damaged copies end with a message, in bounded memory, the input unchanged.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/images.h"
#include "support/needs.h"
#include "support/read_csv.h"
#include "support/run_ravel.h"
#include "webcache/hv_webcache.h"

using namespace testsupport;

namespace {

std::string missing_database_road() {
    if (!webcache_database::offered()) return "ravel built without libesedb (Debian package libesedb-dev)";
    return missing_real_fixtures();
}

std::string sample_database() { return real_fixtures_dir() + "/WebCache/WebCacheV01.dat"; }

// The readable Container_N tables of the sample and the two the library can't read.
const char* const readable_tables[] = {"Container_1",  "Container_2",  "Container_3",  "Container_5",
                                       "Container_6",  "Container_9",  "Container_12", "Container_13",
                                       "Container_14", "Container_15", "Container_16", "Container_17",
                                       "Container_19", "Container_20"};

std::string messages_of(const std::string& path) {
    return "prob reading " + path +
           ": the database was not shut down cleanly; records still in its transaction logs are not read\n"
           "prob reading " + path + ": table Container_4 can't be read through its index, its records were read from its pages\n"
           "prob reading " + path + ": table Container_11 can't be read through its index, its records were read from its pages\n";
}

std::vector<std::string> split(const std::string& line, char at) {
    std::vector<std::string> fields(1);
    for (char c : line) {
        if (c == at)
            fields.emplace_back();
        else
            fields.back() += c;
    }
    return fields;
}

// esedbexport's "Nov 29, 2021 22:47:25.505067300" as the report's date and time columns, to the
// millisecond; both empty for an unset stamp.
std::pair<std::string, std::string> report_stamp(const std::string& exported) {
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (exported.size() < 25 || exported.compare(8, 4, "1601") == 0) return {"", ""};
    int month = 0;
    while (month < 12 && exported.compare(0, 3, months[month]) != 0) ++month;
    return {exported.substr(8, 4) + "-" + (month < 9 ? "0" : "") + std::to_string(month + 1) + "-" + exported.substr(4, 2),
            exported.substr(13, 12) + " UTC"};
}

// The tool's escapes of a text column: a backslash is doubled.
std::string unescaped(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == '\\') ++i;
    }
    return out;
}

}  // namespace

TEST(WebcacheE2E, SampleGivesTheRowsOfTheLibrarysExport) {
    RAVEL_NEEDS(missing_database_road());
    RAVEL_NEEDS(missing_tools({"esedbexport"}, "libesedb-utils"));
    const std::string db = sample_database();
    const run_result run = run_ravel({"-f", db, "-complete"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, messages_of(db) + long_erase);
    std::multiset<std::string> rows;  // of live records: url | access date | access time | count | size | file name
    std::set<std::string> offsets;
    size_t live_rows = 0, other_rows = 0;
    for (const csv_record& f : read_csv(after_preamble(run.out))) {
        ASSERT_EQ(f.size(), 22u);
        if (f[8] != "URL ") continue;
        EXPECT_EQ(f[16], db);
        EXPECT_TRUE(offsets.insert(f[17]).second) << "offset " << f[17] << " twice";
        if (f[18] == "no") {
            ++other_rows;
            continue;
        }
        ++live_rows;
        EXPECT_EQ(f[18] + f[19] + f[20] + f[21], "yes");
        rows.insert(f[9] + "|" + f[2] + "|" + f[3] + "|" + f[14] + "|" + f[12] + "|" + f[11]);
    }

    temp_dir dir;
    size_t exported = 0, with_url = 0;
    for (const char* table : readable_tables) {
        const std::string target = dir.file(table);
        // The tool names its file after the table's number: the one file of the folder.
        ASSERT_TRUE(shell("esedbexport -t " + quoted(target) + " -T " + table + " " + quoted(db) + " > /dev/null && { cat " +
                          quoted(target) + ".export/* > " + quoted(target) + ".tsv; }"))
            << table;
        std::ifstream in(target + ".tsv");
        std::string line;
        std::getline(in, line);
        const std::vector<std::string> names = split(line, '\t');
        std::map<std::string, size_t> column;
        for (size_t i = 0; i < names.size(); ++i) column[names[i]] = i;
        while (std::getline(in, line)) {
            const std::vector<std::string> f = split(line, '\t');
            ASSERT_EQ(f.size(), names.size()) << table << ": " << line;
            ++exported;
            const std::string url = unescaped(f[column["Url"]]);
            if (url.empty()) continue;
            ++with_url;
            const auto access = report_stamp(f[column["AccessedTime"]]);
            const std::string key = url + "|" + access.first + "|" + access.second + "|" + f[column["AccessCount"]] + "|" +
                                    f[column["FileSize"]] + "|" + unescaped(f[column["Filename"]]);
            EXPECT_EQ(rows.count(key), 1u) << table << ": " << key;
        }
    }
    EXPECT_EQ(with_url, 134u);
    // One row a live record, with a URL or not; the two tables the library can't read give theirs from
    // their pages, and every other image in the pages is a row of its own.
    EXPECT_EQ(live_rows, exported + 3297 + 4112);
    EXPECT_EQ(other_rows, 2756u);
}

// The same rows and messages on every file road, and an index.dat beside the database in one report;
// a build that reads the database doesn't change what it gives for the container.
TEST(WebcacheE2E, EveryFileRoadReadsTheDatabase) {
    RAVEL_NEEDS(missing_database_road());
    temp_dir dir;
    const std::string container = real_fixtures_dir() + "/Content.IE5/index.dat";
    ASSERT_TRUE(write_file(dir.file("case/Content.IE5/index.dat"), read_file(container)));
    ASSERT_TRUE(write_file(dir.file("case/WebCache/WebCacheV01.dat"), read_file(sample_database())));
    const std::string db = dir.file("case/WebCache/WebCacheV01.dat"), index_dat = dir.file("case/Content.IE5/index.dat");

    const run_result one = run_ravel({"-f", db});
    EXPECT_EQ(one.status, 0);
    EXPECT_EQ(one.err, messages_of(db) + long_erase);
    const std::string rows = after_preamble(one.out);
    ASSERT_EQ(rows.compare(0, header_row.size(), header_row), 0);
    EXPECT_NE(rows.find(",URL ,Visited: Administrator@file:///E:/test-file-1.txt,Administrator,"), std::string::npos);
    EXPECT_NE(rows.find(" local,"), std::string::npos);  // MSHist's last visit in the machine's local time
    EXPECT_NE(rows.find(",LEAK,,,C:\\Users\\Administrator\\AppData\\Local\\Microsoft\\Windows\\INetCache\\IE\\0KLPAC95\\log[1].txt,0,,0,,"),
              std::string::npos);

    const run_result index = run_ravel({"-f", index_dat});
    const run_result pipe = run_ravel({"-pipe"}, index_dat + "\n" + db + "\n");
    EXPECT_EQ(pipe.status, 0);
    EXPECT_NE(pipe.err.find(messages_of(db)), std::string::npos);
    EXPECT_EQ(after_preamble(pipe.out), after_preamble(index.out) + rows.substr(header_row.size()));
    const run_result walk = run_ravel({"-enumdir", dir.file("case"), "-num_subdirs", "1"});
    EXPECT_EQ(walk.status, 0);
    EXPECT_NE(walk.out.find(rows.substr(header_row.size())), std::string::npos);
    EXPECT_NE(walk.out.find(after_preamble(index.out).substr(header_row.size())), std::string::npos);
}

// jq reads every event and mactime the body file; the events hold each record's stamps and members.
TEST(WebcacheE2E, TimelinesAreReadByTheirTools) {
    RAVEL_NEEDS(missing_database_road());
    RAVEL_NEEDS(missing_tools({"jq"}, "jq"));
    RAVEL_NEEDS(missing_tools({"mactime"}, "sleuthkit"));
    temp_dir dir;
    const std::string db = sample_database();
    const run_result jsonl = run_ravel({"-f", db, "-timeline", "jsonl", "-out", dir.file("events.jsonl")});
    const run_result body = run_ravel({"-f", db, "-timeline", "body", "-out", dir.file("ie.body")});
    EXPECT_EQ(jsonl.status, 0);
    EXPECT_EQ(body.status, 0);
    EXPECT_EQ(jsonl.err, messages_of(db) + long_erase);
    ASSERT_TRUE(shell("jq -e -s 'length > 0 and all(.table != null and .entry_id != null)' " + dir.file("events.jsonl")));
    ASSERT_EQ(std::system(("jq -r '.timestamp_desc' " + dir.file("events.jsonl") + " | sort -u > " + dir.file("descs")).c_str()), 0);
    EXPECT_EQ(read_file(dir.file("descs")), "Created\nExpires\nLast Accessed\nLast Checked\nLast Modified\n");
    ASSERT_EQ(std::system(("mactime -b " + dir.file("ie.body") + " -d -z UTC > " + dir.file("listing")).c_str()), 0);
    EXPECT_NE(read_file(dir.file("listing")).find("IE cache URL: Visited: Administrator@file:///E:/test-file-1.txt"),
              std::string::npos);
}

// Bytes flipped in page headers, pages zeroed, the file cut at a page boundary: each run ends with a
// message, in bounded memory, and leaves its input as it was.
TEST(WebcacheE2E, DamagedCopiesEndWithAMessage) {
    RAVEL_NEEDS(missing_database_road());
    temp_dir dir;
    constexpr size_t page = 32768;
    // The copies are written first and only their hashes kept: the run's child is forked from this
    // process, and its peak memory would count the bytes held here.
    struct damage {
        std::string name, path;
        size_t hash;
    };
    std::vector<damage> copies;
    auto changed = [&](const std::string& name, auto change) {
        std::string bytes = read_file(sample_database());
        ASSERT_EQ(bytes.size(), 16777216u);
        change(bytes);
        const std::string path = dir.file(std::to_string(copies.size()) + "/WebCacheV01.dat");
        ASSERT_TRUE(write_file(path, bytes));
        ASSERT_EQ(chmod(path.c_str(), 0444), 0);
        copies.push_back({name + " " + std::to_string(bytes.size()), path, std::hash<std::string>()(bytes)});
    };
    changed("flipped", [](std::string& b) {
        for (size_t at = 2 * page; at < b.size(); at += 7 * page)
            for (size_t i = 0; i < 40; i += 3) b[at + i] = static_cast<char>(b[at + i] ^ 0x5A);
    });
    changed("zeroed", [](std::string& b) {
        for (size_t at = 3 * page; at < b.size(); at += 5 * page) b.replace(at, page, page, '\0');
    });
    changed("catalog", [](std::string& b) { b.replace(5 * page, 4 * page, 4 * page, '\xFF'); });
    for (size_t pages : {1, 2, 6, 200, 420})
        changed("cut", [pages](std::string& b) { b.resize(pages * page); });
#if defined(__SANITIZE_ADDRESS__)
    const uint64_t peak_limit_kib = 512u * 1024;  // the sanitizer's shadow and quarantine come on top
#else
    const uint64_t peak_limit_kib = 64u * 1024;
#endif
    for (const damage& copy : copies) {
        const bounded_result run = run_ravel_bounded({"-f", copy.path, "-complete"}, 120);
        EXPECT_FALSE(run.killed) << copy.name;
        EXPECT_TRUE(run.status == 0 || run.status == 255) << copy.name << ": " << run.status;
        EXPECT_NE(run.err_tail.find("prob"), std::string::npos) << copy.name;
        EXPECT_LT(run.peak_kib, peak_limit_kib) << copy.name;
        EXPECT_EQ(std::hash<std::string>()(read_file(copy.path)), copy.hash) << copy.name << ": the input was changed";
    }
}
