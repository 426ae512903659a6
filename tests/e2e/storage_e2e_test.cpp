// VMware disks made by qemu-img: a base holding a container and a snapshot that changes some of
// its grains, scanned as a chain and compared with the flattened disk scanned as a file.
#include <gtest/gtest.h>

#include <sstream>

#include "support/builder.h"
#include "support/images.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

// The header row and the rows of a report, their last column (which names the input) replaced by `source`.
std::string rows_with_source(const std::string& report, const std::string& source) {
    std::istringstream in(after_preamble(report));
    std::string line, out;
    if (std::getline(in, line)) out = line + "\n";
    while (std::getline(in, line)) out += line.substr(0, line.rfind(',') + 1) + source + "\n";
    return out;
}

}  // namespace

TEST(StorageE2e, SnapshotChainReadsAsTheFlattenedDisk) {
    RAVEL_NEEDS(missing_qemu_tools());
    temp_dir dir;
    const std::string base = dir.file("base.vmdk"), child = dir.file("child.vmdk"), flat_disk = dir.file("flat.raw");
    byte_image disk(8 << 20), changes(0x8000), patch(0x400);
    disk.text(1 << 20, small_container("base.example").bytes());
    changes.text(0, small_container("child.example").bytes());
    url_entry over;
    over.url = "http://changed.example/over-the-base";
    write_url_entry(patch, 0, over);
    ASSERT_TRUE(write_file(dir.file("base.raw"), disk.bytes()) && write_file(dir.file("patch.bin"), patch.bytes()) &&
                write_file(dir.file("changes.bin"), changes.bytes()) &&
                qemu_vmdk(dir.file("base.raw"), base, "monolithicSparse") &&
                shell("qemu-img create -q -f vmdk -b " + quoted(base) + " -F vmdk " + quoted(child)) &&
                // Other entries in grains of their own, and one over the base's second URL entry.
                shell("qemu-io -f vmdk -c 'write -s " + dir.file("changes.bin") + " 5242880 32768' -c 'write -s " +
                      dir.file("patch.bin") + " " + std::to_string((1 << 20) + 0x5400) + " 1024' " + quoted(child)) &&
                shell("qemu-img convert -q -f vmdk -O raw " + quoted(child) + " " + quoted(flat_disk)))
        << "qemu-img could not build the images";

    run_result flat = run_ravel({"-f", flat_disk});
    ASSERT_EQ(flat.status, 0) << flat.err;
    std::string flat_rows = after_preamble(flat.out);
    EXPECT_NE(flat_rows.find("http://changed.example/over-the-base"), std::string::npos);
    EXPECT_EQ(flat_rows.find("http://base.example/page1"), std::string::npos);
    EXPECT_NE(flat_rows.find("http://child.example/moved"), std::string::npos);

    // 8 MiB in 61440-byte steps: every 33rd position is a multiple of 99.
    std::string progress;
    for (int percent : {0, 24, 48, 72, 96})
        progress += short_erase + ("percent done: " + std::to_string(percent) + "\r");
    for (const auto& names : {std::make_pair(base, child), std::make_pair(child, base)}) {
        run_result run = run_ravel({"-vmdk", names.first + " | " + names.second});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(after_preamble(run.out), rows_with_source(flat.out, names.first + "; " + names.second));
        EXPECT_EQ(run.err, progress + long_erase + "success" + long_erase);
    }

    // A child alone: the note and the suggested array. A plain file isn't a sparse extent: the list as given.
    run_result run = run_ravel({"-vmdk", child});
    EXPECT_EQ(run.status, 255);
    EXPECT_EQ(run.err, "=> vmdk file: " + child + "\n depends on parent vmdk \"" + base +
                           "\"\n\nsuggested array: -vmdk \"" + child + " | " + base + "\"\n" +
                           long_erase);
    EXPECT_EQ(after_preamble(run.out), "");
    run = run_ravel({"-vmdk", flat_disk});
    EXPECT_EQ(run.status, 255);
    EXPECT_EQ(run.err, flat_disk + " can't be opened\n\nsuggested array: -vmdk \"" + flat_disk + "\"\n" +
                           long_erase);
    EXPECT_EQ(after_preamble(run.out), "");
}
