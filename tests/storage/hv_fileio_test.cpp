#include "storage/hv_fileio.h"
#include "storage/hv_report_stream.h"
#include "storage/hv_text_conversion.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "support/run_ravel.h"

using namespace testsupport;

// Bytes whose value tells their position, so a chunk can be checked against the file.
static std::string counting_bytes(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(i % 251);
    return s;
}

using chunk_list = std::vector<std::vector<uint64_t>>;  // offset, length, overlap; {} for misplaced bytes

static uint32_t record_chunk(uni::fileio*, void* log, uint8_t* chunk, uint32_t length, uint32_t overlap,
                             uint64_t offset) {
    const bool in_place = chunk[0] == offset % 251 && chunk[length - 1] == (offset + length - 1) % 251;
    static_cast<chunk_list*>(log)->push_back(in_place ? std::vector<uint64_t>{offset, length, overlap}
                                                      : std::vector<uint64_t>{});
    return 0;
}

// The tail chunk that repeats the file's last `overlap` bytes is required as it stands.
TEST(FileioChunks, OffsetsLengthsAndTheRepeatedTail) {
    const std::pair<size_t, chunk_list> rows[] = {
        {0, {}},
        {1000, {{0, 1000, 0}}},
        {32768, {{0, 32768, 4096}, {28672, 4096, 0}}},
        {36864, {{0, 32768, 4096}, {28672, 8192, 4096}, {32768, 4096, 0}}},
        {60000, {{0, 32768, 4096}, {28672, 31328, 4096}, {55904, 4096, 0}}},
    };
    temp_dir dir;
    for (const auto& r : rows) {
        ASSERT_TRUE(write_file(dir.file("chunks.bin"), counting_bytes(r.first)));
        uni::fileio file(dir.file("chunks.bin"), false, true, 0);
        chunk_list seen;
        EXPECT_TRUE(file.process_chunks(record_chunk, &seen, 32768, 4096, 0)) << r.first;
        EXPECT_EQ(seen, r.second) << r.first;
    }
    EXPECT_FALSE(uni::fileio().process_chunks(record_chunk, nullptr, 32768, 4096, 0));
}

TEST(FileioOpen, RefusesPipesAndNeverCreatesWhatItReads) {
    temp_dir dir;
    const std::string fifo = dir.file("pipe"), missing = dir.file("missing");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(uni::open_checked(fifo, O_RDONLY, 0404), -1);
    uni::fileio pipe_file(fifo, false, true, 0);
    EXPECT_TRUE(pipe_file.fd == -1 && pipe_file.path.empty());
    EXPECT_TRUE(uni::fileio("/dev/null", false, true, 0).is_open());  // a character device passes
    EXPECT_FALSE(uni::fileio(missing, false, true, 0).is_open() || uni::fileio().open(missing, true, true, false));
    EXPECT_NE(access(missing.c_str(), F_OK), 0);
}

// sync does nothing: rows reach the file when the 256 KiB buffer fills or the stream is destroyed.
TEST(FileioReport, NothingReachesTheFileBeforeDestructionUnlessTheBufferFills) {
    temp_dir dir;
    const std::string path = dir.file("report.csv"), big = counting_bytes(300000);
    std::string rows;
    {
        uni::fileio report(path, true, false, 1);
        std::ostream* out = report.get_output();
        ASSERT_NE(out, nullptr);
        for (int i = 0; i < 1000; ++i) {
            *out << "row," << i << std::endl;
            rows += "row," + std::to_string(i) + "\n";
        }
        EXPECT_EQ(read_file(path), "");
        out->write(big.data(), static_cast<std::streamsize>(big.size()));
        EXPECT_EQ(read_file(path).size(), 0x40000u);
    }
    EXPECT_EQ(read_file(path), rows + big);
}

// Takes at most 1000 bytes a write, and fails every write from the fourth on.
class stingy_target : public uni::streambuf_generic_output<char> {
public:
    stingy_target() : streambuf_generic_output<char>(4096) {}
    std::string got;
    int writes = 0;

protected:
    long generic_write(const char* data, unsigned int count) override {
        if (++writes > 3) return -1;
        got.append(data, std::min(count, 1000u));
        return std::min(count, 1000u);
    }
};

// A short write goes on with the rest; after the first failure nothing more is written, so the
// target holds a gapless start of the report.
TEST(FileioReport, ShortWritesGoOnAndAFailureEndsAllWriting) {
    stingy_target target;
    std::ostream out(&target);
    out << std::string(2500, 'a');
    EXPECT_EQ(target.flush(), 0);
    EXPECT_EQ(target.got, std::string(2500, 'a'));
    out << std::string(5000, 'b') << "rest";
    EXPECT_TRUE(out.bad());
    EXPECT_EQ(target.flush(), -1);
    EXPECT_EQ(target.writes, 4);
    EXPECT_EQ(target.got, std::string(2500, 'a'));
}

// Overlong forms and surrogates pass; decoding stops at a bad sequence, encoding past 0x10FFFF.
TEST(Utf8, StopsAtTheFirstBadSequence) {
    std::wstring out;
    EXPECT_TRUE(uni::utf8_to_wide(out, "\xC0\xAF\xED\xA0\x80\xF0\x9F\x98\x80"));
    EXPECT_EQ(out, (std::wstring{L'/', wchar_t(0xD800), wchar_t(0x1F600)}));
    EXPECT_FALSE(uni::utf8_to_wide(out, "ab\xE2\x82"));
    EXPECT_EQ(out, L"ab");
    EXPECT_EQ(uni::narrow_of(L"a\u00E9\u20AC\U0001F600" + std::wstring(1, wchar_t(0x110000)) + L"lost"),
              "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
}
