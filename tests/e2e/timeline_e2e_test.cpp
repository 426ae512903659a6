// -timeline: the -complete rows of an input as a body file for mactime (one line per entry) and as
// JSON Lines (one event per set stamp), on every road.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/needs.h"
#include "support/read_csv.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// The length of the well-formed UTF-8 character at s[i], or 0.
size_t utf8_char(const std::string& s, size_t i) {
    const unsigned char lead = static_cast<unsigned char>(s[i]);
    if (lead < 0x80) return 1;
    const size_t n = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (n == 0 || i + n > s.size()) return 0;
    uint32_t point = lead & (0x7Fu >> n);
    for (size_t k = 1; k < n; ++k) {
        const unsigned char next = static_cast<unsigned char>(s[i + k]);
        if ((next & 0xC0) != 0x80) return 0;
        point = point << 6 | (next & 0x3F);
    }
    static const uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    return point < least[n] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF) ? 0 : n;
}

// What a JSON string of `bytes` must decode to: UTF-8 kept, any other byte as the code point of its value.
std::string as_code_points(const std::string& bytes) {
    std::string out;
    for (size_t i = 0; i < bytes.size();) {
        const size_t n = utf8_char(bytes, i);
        if (n != 0) {
            out.append(bytes, i, n);
            i += n;
        } else {
            const unsigned char c = static_cast<unsigned char>(bytes[i++]);
            out += static_cast<char>(0xC0 | c >> 6);
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

// One flat object of strings, whole numbers and the three words, in valid UTF-8: each member's name and
// value, a string decoded and anything else as written behind "#". Empty when the line is anything else.
using json_object = std::map<std::string, std::string>;
json_object json_object_of(const std::string& line) {
    for (size_t at = 0, n; at < line.size(); at += n)
        if ((n = utf8_char(line, at)) == 0) return {};
    size_t i = 0;
    auto take = [&](char c) {
        const bool here = i < line.size() && line[i] == c;
        i += here;
        return here;
    };
    auto string = [&](std::string& out) {
        static const std::string simple = "\"\\/bfnrt", meaning = "\"\\/\b\f\n\r\t";
        if (!take('"')) return false;
        while (i < line.size() && line[i] != '"') {
            const char c = line[i++];
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                out += c;
            } else if (i < line.size() && simple.find(line[i]) != std::string::npos) {
                out += meaning[simple.find(line[i++])];
            } else if (line.compare(i, 3, "u00") == 0 && i + 5 <= line.size()) {  // the only escapes written
                out += static_cast<char>(std::stoi(line.substr(i + 3, 2), nullptr, 16));
                i += 5;
            } else {
                return false;
            }
        }
        return take('"');
    };
    json_object object;
    if (!take('{')) return {};
    do {
        std::string name, value;
        if (!string(name) || !take(':')) return {};
        if (i < line.size() && line[i] == '"') {
            if (!string(value)) return {};
        } else {
            const size_t end = std::min(line.find_first_of(",}", i), line.size());
            value = "#" + line.substr(i, end - i);
            i = end;
            if (value != "#true" && value != "#false" && value != "#null" &&
                (value.size() < 2 || value.find_first_not_of("0123456789", 1) != std::string::npos))
                return {};
        }
        if (!object.emplace(name, value).second) return {};
    } while (take(','));
    return take('}') && i == line.size() ? object : json_object();
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t from = 0, end; from < text.size(); from = end + 1) {
        end = text.find('\n', from);
        if (end == std::string::npos) end = text.size();  // a last line without its end: seen as extra
        lines.push_back(text.substr(from, end - from));
    }
    return lines;
}

// ---- what a -complete row says the timeline holds ------------------------------------------------

struct stamp {
    const char* description;
    std::string date, clock, label;  // as the row shows them: "2015-03-02", "08:30:00.250", "UTC"
};

std::vector<stamp> stamps_of(const csv_record& row) {
    static const char* const descriptions[] = {"Last Modified", "Last Accessed", "Expires", "Last Checked"};
    std::vector<stamp> stamps;
    for (size_t k = 0; k < 4; ++k) {
        const std::string& time = row[2 * k + 1];
        if (time.empty()) continue;
        const size_t blank = time.rfind(' ');
        stamps.push_back({descriptions[k], row[2 * k], time.substr(0, blank), time.substr(blank + 1)});
    }
    return stamps;
}

std::string type_of(const csv_record& row) { return row[8].substr(0, row[8].find_last_not_of(' ') + 1); }

// "IE cache URL: http://... (user U; file F; dir D; count N; allocated yes; in SOURCE at OFFSET)".
std::string name_of(const csv_record& row) {
    std::string name = "IE cache " + type_of(row) + ":" + (row[9].empty() ? "" : " " + row[9]) + " (";
    for (const auto& part : {std::make_pair("user ", row[10]), std::make_pair("file ", row[11]), std::make_pair("dir ", row[13])})
        if (!part.second.empty()) name += part.first + part.second + "; ";
    name += "count " + row[14] + "; ";
    if (!row[18].empty()) name += "allocated " + row[18] + "; ";
    return name + "in " + row[16] + " at " + row[17] + ")";
}

// The name as mactime shows it: line ends are blanks in a body file.
std::string body_name_of(const csv_record& row) {
    std::string name = name_of(row);
    for (char& c : name) c = c == '\r' || c == '\n' ? ' ' : c;
    return name;
}

// mactime's reading of a body field: every "%" and two hex digits is the byte they name.
std::string mactime_decoded(const std::string& field) {
    std::string out;
    for (size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '%' && i + 2 < field.size() && std::isxdigit(static_cast<unsigned char>(field[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(field[i + 2]))) {
            out += static_cast<char>(std::stoi(field.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += field[i];
        }
    }
    return out;
}

std::vector<csv_record> complete_rows(const run_result& run) {
    std::vector<csv_record> rows = testsupport::complete_rows(run.out);
    for (const csv_record& row : rows) EXPECT_EQ(row.size(), 22u);
    return rows;
}

// Calendar text read as UTC, to seconds since 1970.
int64_t seconds_of(const stamp& s) {
    tm t{};
    if (std::sscanf((s.date + " " + s.clock).c_str(), "%d-%d-%d %d:%d:%d", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour,
                    &t.tm_min, &t.tm_sec) != 6)
        return -999;
    t.tm_year -= 1900;
    t.tm_mon -= 1;
    return static_cast<int64_t>(timegm(&t));
}

// jq, where it is installed, reads the whole of `jsonl` as one JSON value a line.
void expect_jq_reads(const std::string& jsonl) {
    if (!missing_tools({"jq"}, "jq").empty()) return;
    temp_dir dir;
    write_file(dir.file("events.jsonl"), jsonl);
    ASSERT_EQ(std::system(("jq -c . " + dir.file("events.jsonl") + " > " + dir.file("jq.jsonl")).c_str()), 0);
    EXPECT_EQ(lines_of(read_file(dir.file("jq.jsonl"))).size(), lines_of(jsonl).size());
}

// The jsonl run against the -complete run of the same input: one event per set stamp of each row, in
// order, every member as the row has it. A stamp labelled local is found in `local` by its date and
// time when that is given (otherwise TZ is UTC and it reads as it stands). The same messages and status.
void expect_events_match(const run_result& complete, const run_result& jsonl, const std::string& kind,
                         const std::map<std::string, std::string>& local = {}) {
    EXPECT_EQ(jsonl.status, complete.status);
    EXPECT_EQ(jsonl.err, complete.err);
    EXPECT_TRUE(jsonl.out.empty() || jsonl.out.back() == '\n') << "the last event has no line end";
    expect_jq_reads(jsonl.out);
    const std::vector<std::string> lines = lines_of(jsonl.out);
    size_t line = 0;
    for (const csv_record& row : complete_rows(complete)) {
        if (row.size() != 22) continue;
        auto text = [&row](size_t column) { return as_code_points(row[column]); };
        auto answer = [&row](size_t column) { return row[column].empty() ? "#null" : row[column] == "yes" ? "#true" : "#false"; };
        for (const stamp& s : stamps_of(row)) {
            ASSERT_LT(line, lines.size()) << "no event for " << s.description << " of the row at " << row[17];
            const std::string datetime = s.label == "local" && !local.empty() ? local.at(s.date + " " + s.clock)
                                                                              : s.date + "T" + s.clock + "Z";
            const json_object expected = {
                {"datetime", datetime}, {"timestamp_desc", s.description}, {"time_label", s.label},
                {"message", as_code_points(name_of(row))}, {"type", type_of(row)}, {"url", text(9)},
                {"user", text(10)}, {"filename", text(11)}, {"file_size", "#" + row[12]}, {"directory", text(13)},
                {"use_count", "#" + row[14]}, {"http_header", text(15)}, {"source", text(16)},
                {"offset", "#" + row[17]}, {"allocated", answer(18)}, {"hash_listed", answer(19)},
                {"cache_kind", kind}};
            EXPECT_EQ(json_object_of(lines[line]), expected) << lines[line];
            ++line;
        }
    }
    EXPECT_EQ(line, lines.size()) << "events no row accounts for";
}

// ---- inputs -------------------------------------------------------------------------------------

// A container with a bitmap and a HASH block, whose entries hold every kind of stamp the report tells
// apart, texts a body line or JSON can't hold as they are, and daily history URLs of winter and summer.
std::string timeline_container() {
    byte_image image;
    write_container_header(image, {"ALPHA001", "BRAVO002"}, 0x800);
    const size_t first = 0x4000, end = 0x8000;
    image.resize(end);
    image.u32(28, end).u32(36, (end - first) / 128);
    std::vector<url_entry> entries(7);
    url_entry& a = entries[0];  // every stamp; "|", line ends and a Latin-1 byte
    a.url = "http://a.example/x|y?z";
    a.file_name = "a[1].htm";
    a.file_size = 5120;
    a.count = 4;
    a.directory_index = 1;
    a.data = "HTTP/1.1 200 OK\r\nX-Note: caf\xE9\r\n\r\n~U:alice\r\n";
    a.last_modified = filetime_of(2015, 2, 27, 16, 4, 11, 123);
    a.last_access = filetime_of(2015, 3, 2, 8, 30, 0, 250);
    a.expires_date = dos_date_of(2015, 3, 9), a.expires_time = dos_time_of(8, 30, 0);
    a.last_sync_date = dos_date_of(2015, 3, 2), a.last_sync_time = dos_time_of(8, 30, 2);
    url_entry& leak = entries[1];  // access from its DOS pair; half a second before 1970; the year-2000 day
    leak.signature = "LEAK";
    leak.url = "http://ads.example/b.gif";
    leak.file_name = "b[2].gif";
    leak.data = "HTTP/1.1 200 OK\r\n\r\n~U:bob\r\n";
    leak.last_modified = filetime_of(1969, 12, 31, 23, 59, 59, 500);
    leak.second_date = dos_date_of(2015, 3, 1), leak.second_time = dos_time_of(22, 15, 30);
    leak.expires_date = dos_date_of(2000, 3, 1);
    url_entry& none = entries[2];  // no stamp is a date; a URL line end
    none.url = "http://b.example/\r\nnext";
    none.last_modified = filetime_of(1899, 12, 31, 23, 59, 59);
    none.last_access = 116444736005000000ull;  // inside the first second of 1970
    none.expires_date = dos_date_of(2015, 13, 1);
    none.last_sync_date = 0xBEEF;
    none.second_date = dos_date_of(2015, 3, 1);  // only a LEAK's access falls back on it
    url_entry& edge = entries[3];  // the year 3000: west of UTC the run's zone keeps the later stamp
    edge.url = "http://c.example/";
    edge.last_modified = filetime_of(3000, 12, 31, 23, 59, 59, 999);
    edge.last_access = filetime_of(3001, 1, 1, 2);
    for (int i : {4, 5}) {  // daily history: local time, one in winter and one in summer
        entries[i].url = i == 4 ? ":2015011220150119: carol@http://h.example/" : ":2015071320150720: carol@http://h.example/";
        entries[i].last_modified = filetime_of(2015, i == 4 ? 1 : 7, 15, 12);
        entries[i].last_access = entries[i].last_modified;
        entries[i].data = std::string("\x60\0\0\0~U:carol", 11);
    }
    entries[6].url = "http://redirect.example/";
    size_t at = first;
    std::vector<std::pair<uint32_t, uint32_t>> slots;
    for (size_t i = 0; i < entries.size(); ++i) {
        if (i % 2 == 0) slots.push_back({1, static_cast<uint32_t>(at)});
        if (i == 0) image.u8(0x250, 1);  // the first entry's block in use
        at += i == 6 ? write_redr_entry(image, at, entries[i].url) : write_url_entry(image, at, entries[i]);
    }
    write_hash_block(image, 0x800, slots, 0, 4);
    return image.bytes();
}

struct timeline_inputs {
    temp_dir dir;
    const std::string folder = dir.file("Temporary Internet Files");
    const std::string small = folder + "/index.dat", big = dir.file("disk.raw"), vmdk = dir.file("disk.vmdk");
    timeline_inputs() {
        const std::string container = timeline_container();
        write_file(small, container);
        const size_t size = 17 << 20, at = 512 * 9001;  // over 16 MiB: read in chunks
        byte_image disk(size);
        disk.text(at, container);
        write_file(big, disk.bytes());
        sparse_vmdk(size, 128, 512).write(0, disk.bytes()).save(vmdk);
    }
};

std::vector<std::string> with(std::vector<std::string> args, std::initializer_list<const char*> more) {
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

}  // namespace

TEST(TimelineE2E, JsonlEventsAreTheCompleteRowsStampByStampOnEveryRoad) {
    const timeline_inputs in;
    const struct {
        std::vector<std::string> args;
        std::string input, kind;
    } roads[] = {
        {{"-f", in.small}, "", "browser_cache"},
        {{"-quiet", "-f", in.big}, "", "unknown"},
        {{"-vmdk", in.vmdk}, "", "unknown"},
        {{"-pipe"}, in.small + "\n", "browser_cache"},
        {{"-enumdir", in.folder}, "", "browser_cache"},
    };
    // West of UTC with summer time: the zone's rules for each stamp's date, not today's offset.
    const std::map<std::string, std::string> new_york = {{"2015-01-15 12:00:00.000", "2015-01-15T17:00:00.000Z"},
                                                         {"2015-07-15 12:00:00.000", "2015-07-15T16:00:00.000Z"}};
    for (const auto& road : roads) {
        for (const char* zone : {"UTC", "EST5EDT,M3.2.0,M11.1.0"}) {
            SCOPED_TRACE(road.args[road.args.size() - 1] + " TZ=" + zone);
            const std::vector<std::string> env = {std::string("TZ=") + zone};
            const run_result complete = run_ravel(with(road.args, {"-complete"}), road.input, env);
            ASSERT_EQ(complete.status, 0) << complete.err;
            ASSERT_EQ(complete_rows(complete).size(), 7u);
            const run_result jsonl = run_ravel(with(road.args, {"-timeline", "jsonl"}), road.input, env);
            expect_events_match(complete, jsonl, road.kind, zone[0] == 'U' ? std::map<std::string, std::string>() : new_york);
        }
    }
}

TEST(TimelineE2E, BodyLinesHoldEachEntryWithItsStampsInSeconds) {
    const timeline_inputs in;
    const run_result complete = run_ravel({"-complete", "-f", in.small});
    const run_result body = run_ravel({"-timeline", "body", "-f", in.small});
    ASSERT_EQ(body.status, 0);
    EXPECT_EQ(body.err, complete.err);
    const std::vector<csv_record> rows = complete_rows(complete);
    const std::vector<std::string> lines = lines_of(body.out);
    ASSERT_EQ(lines.size(), rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        const std::vector<csv_record> fields = read_csv(lines[i] + "\n", '|');  // no field is quoted
        ASSERT_EQ(fields.size(), 1u);
        ASSERT_EQ(fields[0].size(), 11u) << lines[i];
        const csv_record& f = fields[0];
        EXPECT_EQ(mactime_decoded(f[1]), body_name_of(rows[i]));
        std::string seconds[3] = {"0", "0", "0"};  // atime, mtime, ctime: access, last mod, last sync
        for (const stamp& s : stamps_of(rows[i])) {
            const std::string d = s.description;
            const int slot = d == "Last Accessed" ? 0 : d == "Last Modified" ? 1 : d == "Last Checked" ? 2 : -1;
            if (slot >= 0) seconds[slot] = std::to_string(seconds_of(s));
        }
        EXPECT_EQ(f[0] + f[2] + f[3] + f[4] + f[5] + f[10], "000000");
        EXPECT_EQ(f[6], rows[i][12]);
        EXPECT_EQ(f[7] + " " + f[8] + " " + f[9], seconds[0] + " " + seconds[1] + " " + seconds[2]) << f[1];
    }
}

// The events of the real containers are those of their -complete rows, and jq reads them; mactime reads
// their body files without a word and lists every set stamp.
TEST(TimelineE2E, RealContainersGiveTheEventsOfTheirCompleteRows) {
    RAVEL_NEEDS(missing_real_fixtures());
    RAVEL_NEEDS(missing_tools({"jq"}, "jq"));
    RAVEL_NEEDS(missing_tools({"mactime"}, "sleuthkit"));
    temp_dir dir;
    const std::pair<const char*, const char*> containers[] = {
        {"Content.IE5", "unknown"}, {"History.IE5", "history"}, {"deleted", "unknown"}};
    for (const auto& [name, kind] : containers) {
        const std::string container = real_container(name);
        SCOPED_TRACE(container);
        const run_result complete = run_ravel({"-complete", "-f", container});
        ASSERT_FALSE(complete_rows(complete).empty());
        expect_events_match(complete, run_ravel({"-timeline", "jsonl", "-f", container}), kind);

        const std::string body = dir.file("ie.body"), listing = dir.file("listing.csv"), err = dir.file("err");
        ASSERT_EQ(run_ravel({"-timeline", "body", "-f", container, "-out", body}).status, 0);
        ASSERT_EQ(std::system(("mactime -b " + body + " -d -z UTC > " + listing + " 2> " + err).c_str()), 0);
        EXPECT_EQ(read_file(err), "");
        // Each set stamp of the -complete rows as mactime shows it: date, size, the m/a/c letters of the
        // entry's stamps at that second, name. Expiry has no place in a body file.
        std::multiset<std::string> want, got;
        for (const csv_record& row : complete_rows(complete)) {
            std::map<int64_t, std::string> letters;  // by second
            for (const stamp& s : stamps_of(row)) {
                const std::string d = s.description;
                const size_t at = d == "Last Modified" ? 0 : d == "Last Accessed" ? 1 : d == "Last Checked" ? 2 : 3;
                if (at == 3) continue;
                std::string& l = letters[seconds_of(s)];
                if (l.empty()) l = "....";
                l[at] = "mac"[at];
            }
            for (const auto& at : letters) {
                const time_t seconds = static_cast<time_t>(at.first);
                char date[40];
                std::strftime(date, sizeof date, "%a %b %d %Y %H:%M:%S", std::gmtime(&seconds));
                want.insert(std::string(date) + "," + row[12] + "," + at.second + ",0,0,0,0,\"" + body_name_of(row) + "\"");
            }
        }
        for (const std::string& line : lines_of(read_file(listing)))
            if (line.rfind("Xxx", 0) != 0 && line.rfind("Date,", 0) != 0) got.insert(line);
        EXPECT_FALSE(want.empty());
        EXPECT_EQ(got, want);
    }
}

TEST(TimelineE2E, FormsOutputAndMessages) {
    const timeline_inputs in;
    // A timeline has no separator to lose; -out gets the whole of it; messages and statuses stay those
    // of the road.
    const run_result body = run_ravel({"-timeline", "body", "-f", in.small});
    for (const char* form : {"-xml", "-multiline", "-bodyfile"})
        EXPECT_EQ(run_ravel({"-timeline", "body", form, "-f", in.small}).out, body.out) << form;
    const run_result to_file = run_ravel({"-timeline", "body", "-f", in.small, "-out", in.dir.file("ie.body")});
    EXPECT_EQ(to_file.out, "");
    EXPECT_EQ(to_file.err, run_ravel({"-f", in.small, "-out", in.dir.file("report.csv")}).err);
    EXPECT_EQ(read_file(in.dir.file("ie.body")), body.out);
    for (const std::vector<std::string>& args : {std::vector<std::string>{"-f", in.dir.file("missing")},
                                                 std::vector<std::string>{"-f", in.dir.path()},
                                                 std::vector<std::string>{"-vmdk", in.small}}) {
        const run_result plain = run_ravel(args), timeline = run_ravel(with(args, {"-timeline", "jsonl"}));
        EXPECT_EQ(timeline.status, plain.status) << args[1];
        EXPECT_EQ(timeline.err, plain.err) << args[1];
        EXPECT_EQ(timeline.out, after_preamble(plain.out)) << args[1];
    }
}
