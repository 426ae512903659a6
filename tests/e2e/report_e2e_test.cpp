// The report on its way out: a write that fails is told once and fails the run, and what was
// written before it stays.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>

#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// A container of `entries` URL entries; each gives a report row of some 200 bytes.
std::string busy_container(int entries) {
    byte_image image(0x4000);
    write_container_header(image, {"Q7X2M4LA"}, 0);
    url_entry entry;
    entry.file_name = "page[1].htm";
    entry.last_modified = filetime_of(2015, 3, 2, 8, 30);
    entry.data = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n~U:alice\r\n";
    size_t at = image.size();
    for (int i = 0; i < entries; ++i) {
        entry.url = "http://www.example.com/page/" + std::to_string(i);
        at += write_url_entry(image, at, entry);
    }
    return image.bytes();
}

struct inputs {
    temp_dir dir;
    const std::string small = dir.file("small/index.dat"), big = dir.file("big/index.dat");
    // Some 1.7 MB of report. The name behind the big ones is missing: parsed, it would be told.
    const std::string list = big + "\n" + big + "\n" + big + "\n" + dir.file("missing") + "\n";
    inputs() {
        write_file(small, busy_container(3));
        write_file(big, busy_container(3000));
    }
};

}  // namespace

TEST(ReportE2E, AFailedWriteIsToldOnceAndFailsTheRun) {
    inputs in;
    const std::string to_file = long_erase + "prob writing results file: /dev/full\n";
    const std::string to_stdout = long_erase + "prob writing report to standard output\n";
    struct row {
        std::vector<std::string> args;
        std::string input, stdout_path, err;
    } rows[] = {
        // The small report fails only when its last buffer goes out at the end of the run.
        {{"-f", in.small, "-out", "/dev/full"}, "", "", to_file + long_erase},
        {{"-pipe", "-out", "/dev/full"}, in.list, "", to_file + long_erase},
        {{"-f", in.small}, "", "/dev/full", to_stdout + long_erase},
        {{"-pipe"}, in.list, "/dev/full", to_stdout + long_erase},
        {{"-sqlite_log", "db"}, "", "/dev/full", "This option is not offered in this build\nprob writing report to standard output\n"},
    };
    for (const auto& r : rows) {
        run_result got = run_ravel(r.args, r.input, {}, "", r.stdout_path);
        EXPECT_EQ(got.out, "") << r.args[0] << " " << r.stdout_path;
        EXPECT_EQ(got.err, r.err) << r.args[0] << " " << r.stdout_path;
        EXPECT_EQ(got.status, 255) << r.args[0] << " " << r.stdout_path;
    }

    // Told when it happens, not when the scan ends: before the disk's last percentage lines.
    ASSERT_TRUE(sparse_vmdk(4 << 20).write(0, busy_container(3000)).save(in.dir.file("disk.vmdk")));
    const run_result disk = run_ravel({"-vmdk", in.dir.file("disk.vmdk"), "-out", "/dev/full"});
    EXPECT_EQ(disk.status, 255);
    const size_t told = disk.err.find(to_file);
    ASSERT_NE(told, std::string::npos) << disk.err;
    EXPECT_NE(disk.err.find("percent", told), std::string::npos);
    EXPECT_EQ(disk.err.find(to_file, told + 1), std::string::npos);
}

// A full disk, without root: a file-size limit cuts the report file. 976 blocks are no multiple of the
// 256 KiB buffer, so a write is cut short, and the write after it fails.
TEST(ReportE2E, AReportCutByTheFileSizeLimitKeepsWhatFit) {
    inputs in;
    const std::string report = in.dir.file("report.csv"), err = in.dir.file("err"), list = in.dir.file("list");
    ASSERT_TRUE(write_file(list, in.list));
    // The limit's signal ignored, so that the write answers short or fails instead of ending the run.
    const std::string command = "trap '' XFSZ; ulimit -f 976; exec '" + ravel_binary() + "' -quiet -out '" + report +
                                "' -pipe < '" + list + "' 2> '" + err + "'";
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 255);
    EXPECT_EQ(read_file(err), "prob writing results file: " + report + "\n");
    const std::string kept = read_file(report), rows = after_preamble(kept);
    // The limit counts blocks of 512 bytes (or 1024 where sh is bash): either way the last write is cut.
    EXPECT_TRUE(kept.size() == 976u * 512 || kept.size() == 976u * 1024) << kept.size();
    EXPECT_EQ(rows, after_preamble(run_ravel({"-quiet", "-pipe"}, in.list).out).substr(0, rows.size()));
}
