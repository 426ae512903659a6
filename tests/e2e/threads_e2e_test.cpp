// -threads N changes nothing but the time: on every road and report form, standard output, standard
// error and the status are the same bytes with 1, 2, 3 and 8 threads (more workers than cores is legal),
// damaged and hostile inputs included.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/builder.h"
#include "support/builder_hostile.h"
#include "support/builder_vmdk.h"
#include "support/images.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// The report without the lines that name the run's time and its thread count.
std::string without_run_lines(std::string out) {
    for (const char* line : {"Run time: ", "\"Command line: "}) {
        const size_t at = out.find(line);
        if (at != std::string::npos) out.erase(at, out.find('\n', at) - at);
    }
    return out;
}

}  // namespace

TEST(ThreadsE2E, TheSameBytesWhateverTheThreads) {
    RAVEL_NEEDS(missing_ewf_road());
    RAVEL_NEEDS(missing_real_fixtures());
    temp_dir dir;
    const byte_image disk = evidence_disk();
    ASSERT_TRUE(write_file(dir.file("disk.raw"), disk.bytes()));
    ASSERT_TRUE(ewf_acquire(dir.file("disk.raw"), dir.file("case"), "fast", 1 << 20));
    ASSERT_TRUE(ewf_acquire(dir.file("disk.raw"), dir.file("damaged"), "fast"));
    std::string segment = read_file(dir.file("damaged.E01"));
    segment[100000] = static_cast<char>(segment[100000] ^ 0x5A);  // a chunk that fails: told once, in its place
    ASSERT_TRUE(write_file(dir.file("damaged.E01"), segment));
    ASSERT_TRUE(sparse_vmdk(disk.size(), 128, 512).write(0, disk.bytes()).save(dir.file("disk.vmdk")));
    // Past 16 MiB a file is read in chunks.
    ASSERT_TRUE(write_file(dir.file("big.bin"), disk.bytes() + std::string(7 << 20, '\0') + disk.bytes()));

    // A list whose files take turns with the cache kind their paths give, so that files that give none
    // (a big file, an empty one, a database, one that won't open) carry the kind of the one before.
    const std::string real = real_fixtures_dir();
    std::vector<std::string> list = {real_container("History.IE5"), dir.file("big.bin"), dir.file("missing.dat"),
                                     real + "/WebCache/WebCacheV01.dat", real_container("Content.IE5"),
                                     real_container("deleted")};
    const char* folders[] = {"MSHist012015030120150308", "History.IE5", "Content.IE5", "Cookies", "case"};
    for (uint32_t seed = 0; seed < 40; ++seed) {
        if (seed == 20) list.push_back(dir.file("big.bin"));
        const std::string path = dir.file(std::string(folders[seed % 5]) + "-" + std::to_string(seed) + ".dat");
        ASSERT_TRUE(write_file(path, seed % 7 == 3 ? std::string() : hostile_container(seed).bytes()));
        list.push_back(path);
    }
    std::string names;
    for (const std::string& name : list) names += name + "\n";

    const std::vector<std::vector<std::string>> roads = {
        {"-ewf", dir.file("case.E01")}, {"-ewf", dir.file("damaged.E01")}, {"-vmdk", dir.file("disk.vmdk")},
        {"-f", dir.file("big.bin")},    {"-pipe"},                          {"-enumdir", dir.path(), "-num_subdirs", "2"},
    };
    const std::vector<std::vector<std::string>> forms = {{}, {"-complete"}, {"-timeline", "jsonl"}, {"-timeline", "body"}};
    for (const auto& road : roads) {
        for (const auto& form : forms) {
            std::vector<std::string> args = road;
            args.insert(args.end(), form.begin(), form.end());
            args.insert(args.end(), {"-threads", "1"});
            const run_result one = run_ravel(args, names);
            for (const char* threads : {"2", "3", "8"}) {
                args.back() = threads;
                const run_result many = run_ravel(args, names);
                const std::string what = args[0] + " " + (form.empty() ? "" : form[0]) + " -threads " + threads;
                EXPECT_EQ(without_run_lines(many.out), without_run_lines(one.out)) << what;
                EXPECT_EQ(many.err, one.err) << what;
                EXPECT_EQ(many.status, one.status) << what;
            }
        }
    }
}
