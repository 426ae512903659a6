#include "storage/hv_fileio.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "input/hv_name_filter.h"
#include "support/run_ravel.h"

using testsupport::read_file;
using testsupport::temp_dir;
using testsupport::write_file;

namespace {

// Bytes whose value tells their position, so a chunk can be checked against the file.
std::string counting_bytes(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    return s;
}

struct chunk_seen {
    uint64_t offset;
    uint32_t length;
    uint32_t overlap;
    bool operator==(const chunk_seen& o) const {
        return offset == o.offset && length == o.length && overlap == o.overlap;
    }
};

struct chunk_log {
    std::string file_bytes;
    std::vector<chunk_seen> chunks;
    bool bytes_match = true;
};

uint32_t record_chunk(uni::fileio*, void* context, uint8_t* chunk, uint32_t length, uint32_t overlap,
                      uint64_t offset) {
    auto* log = static_cast<chunk_log*>(context);
    log->chunks.push_back({offset, length, overlap});
    if (log->file_bytes.compare(offset, length, reinterpret_cast<const char*>(chunk), length) != 0)
        log->bytes_match = false;
    return 0;
}

}  // namespace

TEST(FileioChunks, OffsetsLengthsAndTheRepeatedTail) {
    struct row {
        size_t file_size;
        std::vector<chunk_seen> expected;
    };
    const std::vector<row> rows = {
        {0, {}},
        {1000, {{0, 1000, 0}}},
        {32768, {{0, 32768, 4096}, {28672, 4096, 0}}},
        {36864, {{0, 32768, 4096}, {28672, 8192, 4096}, {32768, 4096, 0}}},
        {60000, {{0, 32768, 4096}, {28672, 31328, 4096}, {55904, 4096, 0}}},
    };
    temp_dir dir;
    for (const row& r : rows) {
        SCOPED_TRACE(r.file_size);
        chunk_log log;
        log.file_bytes = counting_bytes(r.file_size);
        ASSERT_TRUE(write_file(dir.file("chunks.bin"), log.file_bytes));
        uni::fileio file(dir.file("chunks.bin"), false, true, 0);
        ASSERT_TRUE(file.is_open());
        EXPECT_TRUE(file.process_chunks(record_chunk, &log, 32768, 4096, 0));
        EXPECT_EQ(log.chunks, r.expected);
        EXPECT_TRUE(log.bytes_match);
    }
    uni::fileio closed;
    chunk_log log;
    EXPECT_FALSE(closed.process_chunks(record_chunk, &log, 32768, 4096, 0));
}

TEST(FileioOpen, RefusesNamedPipesAndOpensWithoutTrailingSlash) {
    temp_dir dir;
    std::string fifo = dir.file("pipe");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(uni::open_checked(fifo, O_RDONLY, 0404), -1);
    uni::fileio pipe_file(fifo, false, true, 0);
    EXPECT_FALSE(pipe_file.is_open());
    EXPECT_EQ(pipe_file.fd, -1);
    EXPECT_TRUE(pipe_file.path.empty());

    ASSERT_TRUE(write_file(dir.file("plain"), "abc"));
    uni::fileio file(dir.file("plain") + "//", false, true, 0);
    ASSERT_TRUE(file.is_open());
    EXPECT_EQ(file.path, uni::wide_of(dir.file("plain")));
    EXPECT_EQ(file.size, 3u);

    EXPECT_EQ(uni::open_checked(std::string(), O_RDONLY, 0404), -1);
    // A character device passes and has no size.
    uni::fileio device("/dev/null", false, true, 0);
    EXPECT_TRUE(device.is_open());
    EXPECT_EQ(device.get_size(), 0u);
}

TEST(FileioOpen, ReadingNeverCreatesAndAppendingNeedsTheFile) {
    temp_dir dir;
    std::string missing = dir.file("missing");
    uni::fileio reader(missing, false, true, 0);
    EXPECT_FALSE(reader.is_open());
    uni::fileio appender;
    EXPECT_FALSE(appender.open(missing, true, true, false));
    EXPECT_NE(access(missing.c_str(), F_OK), 0);

    ASSERT_TRUE(write_file(missing, "start"));
    ASSERT_TRUE(appender.open(missing, true, true, false));
    std::ostringstream more;
    more << "+more";
    EXPECT_TRUE(appender.append_text(more));
    EXPECT_EQ(appender.size, 10u);
    appender.close();
    EXPECT_EQ(read_file(missing), "start+more");
    EXPECT_FALSE(appender.append("x", 1));
}

TEST(FileioRead, BoundsAndLengths) {
    temp_dir dir;
    ASSERT_TRUE(write_file(dir.file("ten"), "0123456789"));
    uni::fileio file(dir.file("ten"), false, true, 0);
    ASSERT_TRUE(file.is_open());
    char buf[32] = {};

    uint32_t length = 4;
    EXPECT_TRUE(file.read(buf, length, 8));  // cut to the end
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(std::string(buf, 2), "89");

    length = 5;
    EXPECT_FALSE(file.read(buf, length, 10));  // at the end
    EXPECT_EQ(length, 5u);
    length = 0;
    EXPECT_TRUE(file.read(buf, length, 3));

    uint64_t wide_length = 0x100000000ull;
    EXPECT_FALSE(file.read(buf, wide_length, 0));
    EXPECT_EQ(wide_length, 0x100000000ull);  // untouched
    wide_length = 3;
    EXPECT_FALSE(file.read(buf, wide_length, 11));
    EXPECT_EQ(wide_length, 0u);

    std::vector<uint8_t> out{1, 2};
    EXPECT_TRUE(file.read_into(out, 0, 0));
    EXPECT_EQ(out.size(), 2u);  // left alone
    EXPECT_TRUE(file.read_into(out, 100, 6));
    EXPECT_EQ(std::string(out.begin(), out.end()), "6789");
    EXPECT_FALSE(file.read_into(out, 1, 10));
}

TEST(FileioRead, WholeFile) {
    temp_dir dir;
    ASSERT_TRUE(write_file(dir.file("empty"), ""));
    ASSERT_TRUE(write_file(dir.file("some"), "abcdef"));
    std::vector<uint8_t> out{9};
    EXPECT_FALSE(uni::read_whole_file(out, dir.file("missing"), 100));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(uni::read_whole_file(out, dir.file("empty"), 100));
    EXPECT_FALSE(uni::read_whole_file(out, dir.file("some"), 0));
    EXPECT_FALSE(uni::read_whole_file(out, "", 100));
    EXPECT_TRUE(uni::read_whole_file(out, dir.file("some"), 4));
    EXPECT_EQ(std::string(out.begin(), out.end()), "abcd");
    EXPECT_TRUE(uni::read_whole_file(out, dir.file("some"), 100));
    EXPECT_EQ(std::string(out.begin(), out.end()), "abcdef");
}

TEST(FileioReport, NothingReachesTheFileBeforeDestructionUnlessTheBufferFills) {
    temp_dir dir;
    std::string path = dir.file("report.csv");
    std::string expected;
    {
        uni::fileio report(path, true, false, 1);
        ASSERT_TRUE(report.is_open());
        std::ostream* out = report.get_output();
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(out, report.get_output());
        for (int i = 0; i < 1000; ++i) {
            *out << "row," << i << std::endl;
            expected += "row," + std::to_string(i) + "\n";
        }
        out->flush();
        EXPECT_EQ(read_file(path), "");  // sync does nothing
    }
    EXPECT_EQ(read_file(path), expected);

    // A full buffer goes out in one write of exactly 256 KiB.
    std::string big = counting_bytes(300000);
    {
        uni::fileio report(path, true, false, 1);
        std::ostream* out = report.get_output();
        ASSERT_NE(out, nullptr);
        out->write(big.data(), static_cast<std::streamsize>(big.size()));
        EXPECT_EQ(read_file(path).size(), 0x40000u);
    }
    EXPECT_EQ(read_file(path), big);

    uni::fileio closed;
    EXPECT_EQ(closed.get_output(), nullptr);
}

TEST(FileioStats, FillsFromTheFileAndClearsOnFailure) {
    temp_dir dir;
    ASSERT_TRUE(write_file(dir.file("f"), "12345"));
    struct stat st;
    ASSERT_EQ(stat(dir.file("f").c_str(), &st), 0);

    file_stats stats;
    ASSERT_TRUE(uni::get_file_stats(stats, uni::wide_of(dir.file("f"))));
    EXPECT_EQ(stats.size, 5u);
    EXPECT_EQ(stats.inode, static_cast<uint64_t>(st.st_ino));
    EXPECT_EQ(stats.mtime, static_cast<uint64_t>(st.st_mtime));
    EXPECT_EQ(stats.time_kind, 8);
    EXPECT_FALSE(stats.is_dir);
    EXPECT_EQ(uni::file_inode_of(uni::wide_of(dir.file("f"))), stats.inode);

    ASSERT_TRUE(uni::get_file_stats(stats, uni::wide_of(dir.path())));
    EXPECT_TRUE(stats.is_dir);

    EXPECT_FALSE(uni::get_file_stats(stats, uni::wide_of(dir.file("missing"))));
    EXPECT_EQ(stats.mtime, 0u);
    EXPECT_EQ(stats.inode, 0u);
    EXPECT_EQ(uni::file_inode_of(L""), 0u);
}

TEST(Utf8, DecodesAndStopsAtTheFirstBadSequence) {
    struct row {
        std::string in;
        bool ok;
        std::wstring out;
    };
    const std::vector<row> rows = {
        {"plain", true, L"plain"},
        {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", true, L"caf\u00E9 \u20AC \U0001F600"},
        {"\xC0\xAF", true, std::wstring(1, L'/')},                  // overlong, taken as it comes
        {"\xED\xA0\x80", true, std::wstring(1, wchar_t(0xD800))},  // surrogate, likewise
        {"", false, L""},
        {"ab\xFF" "cd", false, L"ab"},
        {"ab\x80", false, L"ab"},             // stray continuation byte
        {"x\xE2\x82", false, L"x"},           // input ends inside a sequence
        {"x\xC3(y", false, L"x"},             // continuation missing
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.in);
        std::wstring out = L"junk";
        EXPECT_EQ(uni::utf8_to_wide(out, r.in), r.ok);
        EXPECT_EQ(out, r.out);
        EXPECT_EQ(uni::wide_of(r.in), r.ok ? r.out : L"");
    }
}

TEST(Utf8, EncodesEveryRangeAndStopsSilentlyPastTheLast) {
    const std::wstring all = L"a\u00E9\u07FF\u0800\uFFFF\U00010000\U0010FFFF";
    std::string narrow;
    EXPECT_TRUE(uni::wide_to_utf8(narrow, all));
    EXPECT_EQ(narrow, "a\xC3\xA9\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
    EXPECT_EQ(uni::wide_of(narrow), all);

    std::wstring beyond = L"ok";
    beyond += wchar_t(0x110000);
    beyond += L"lost";
    EXPECT_TRUE(uni::wide_to_utf8(narrow, beyond));
    EXPECT_EQ(narrow, "ok");
    EXPECT_EQ(uni::narrow_of(L""), "");
}

TEST(StdinStream, LinesStripsPiecesAndBadBytes) {
    FILE* source = tmpfile();
    ASSERT_NE(source, nullptr);
    std::string long_line(5000, 'L');
    std::string text = "one\r\n\n  two \n" + long_line + "\n\xC3\xA9x\xFFy\r\nlast";
    fwrite(text.data(), 1, text.size(), source);
    rewind(source);

    uni::stdin_stream lines;
    ASSERT_TRUE(lines.open(source));
    std::string narrow;
    std::wstring wide;
    EXPECT_TRUE(lines.read(wide, true));
    EXPECT_EQ(wide, L"one");
    EXPECT_TRUE(lines.read(narrow, true));
    EXPECT_EQ(narrow, "");
    EXPECT_TRUE(lines.read(narrow, false));
    EXPECT_EQ(narrow, "  two \n");
    EXPECT_TRUE(lines.read(narrow, true));
    EXPECT_EQ(narrow, std::string(4095, 'L'));
    EXPECT_TRUE(lines.read(narrow, true));
    EXPECT_EQ(narrow, std::string(905, 'L'));
    EXPECT_TRUE(lines.read(wide, true));  // a bad byte doesn't fail the read
    EXPECT_EQ(wide, L"\u00E9x");
    EXPECT_TRUE(lines.read(narrow, true));
    EXPECT_EQ(narrow, "last");
    EXPECT_FALSE(lines.read(narrow, true));
    EXPECT_EQ(narrow, "");
    fclose(source);

    uni::stdin_stream none;
    EXPECT_FALSE(none.open(nullptr));
    EXPECT_FALSE(none.read(narrow, true));
}
