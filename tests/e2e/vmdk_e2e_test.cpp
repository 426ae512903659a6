// VMware disks made by qemu-img, read through the VMDK road. A snapshot chain gives the rows of the
// flattened disk read as a file. streamOptimized disks (VMware's exports, the directory at the end) give
// the rows and messages of the monolithic sparse form of the same raw disk, chains included; a grain
// that doesn't inflate is told and reads as zeros.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "foundation/hv_bytes.h"
#include "storage/hv_vmdk.h"
#include "support/builder.h"
#include "support/builder_vmdk.h"
#include "support/images.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

std::string missing_stream_tools() {
    if (!VMWARE_DISK::inflate_offered()) return "ravel built without zlib (Debian package zlib1g-dev)";
    return missing_qemu_tools();
}

// The -vmdk road over the files `list` names in `folder`, each folder's disk named alike.
run_result vmdk_road(const std::string& folder, const std::string& list = "disk.vmdk") {
    return run_ravel({"-vmdk", list}, "", {}, folder);
}

// A snapshot of `base` in `folder` whose grains over the base's text-like first MiB are rewritten.
bool add_snapshot(const std::string& folder, const std::string& patch) {
    return shell("cd " + quoted(folder) + " && qemu-img create -q -f vmdk -b disk.vmdk -F vmdk child.vmdk && "
                 "qemu-io -f vmdk -c 'write -s " + patch + " 393216 131072' child.vmdk");
}

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

TEST(StreamVmdkE2E, StreamDisksGiveTheRowsOfTheSparseForm) {
    RAVEL_NEEDS(missing_stream_tools());
    temp_dir dir;
    const byte_image disk = evidence_disk();
    byte_image patch(131072);
    for (size_t at = 0; at < patch.size(); at += 4096) {
        url_entry entry;
        entry.url = "http://snapshot.example/" + std::to_string(at);
        write_url_entry(patch, at + 512, entry);
    }
    ASSERT_TRUE(write_file(dir.file("disk.raw"), disk.bytes()) && write_file(dir.file("patch.bin"), patch.bytes()) &&
                write_file(dir.file("sparse/.keep"), "") &&
                write_file(dir.file("stream/.keep"), "") &&
                qemu_vmdk(dir.file("disk.raw"), dir.file("sparse/disk.vmdk"), "monolithicSparse") &&
                qemu_vmdk(dir.file("disk.raw"), dir.file("stream/disk.vmdk"), "streamOptimized"));
    const run_result sparse = vmdk_road(dir.file("sparse"));
    ASSERT_EQ(sparse.status, 0);
    EXPECT_NE(sparse.out.find("http://edge.example/"), std::string::npos);
    const run_result stream = vmdk_road(dir.file("stream"));
    EXPECT_EQ(stream.status, 0);
    EXPECT_EQ(after_preamble(stream.out), after_preamble(sparse.out));
    EXPECT_EQ(stream.err, sparse.err);

    // A snapshot over each base: the newest grain first, the base's compressed grains under it.
    ASSERT_TRUE(add_snapshot(dir.file("sparse"), dir.file("patch.bin")) &&
                add_snapshot(dir.file("stream"), dir.file("patch.bin")));
    const run_result sparse_chain = vmdk_road(dir.file("sparse"), "child.vmdk | disk.vmdk");
    ASSERT_EQ(sparse_chain.status, 0);
    EXPECT_NE(sparse_chain.out.find("http://snapshot.example/4096,"), std::string::npos);
    const run_result stream_chain = vmdk_road(dir.file("stream"), "child.vmdk | disk.vmdk");
    EXPECT_EQ(stream_chain.status, 0);
    EXPECT_EQ(after_preamble(stream_chain.out), after_preamble(sparse_chain.out));
    EXPECT_EQ(stream_chain.err, sparse_chain.err);
}

// A byte changed in the deflate data of qemu-img's first grain, or in the marker of its second, which then
// names another grain: that grain's 64 KiB are told, once, and read as zeros; the rows are those of the
// raw disk with them zeroed.
TEST(StreamVmdkE2E, GrainThatDoesNotInflateIsToldAndReadsAsZeros) {
    RAVEL_NEEDS(missing_stream_tools());
    temp_dir dir;
    const byte_image disk = evidence_disk();
    ASSERT_TRUE(write_file(dir.file("disk.raw"), disk.bytes()) && write_file(dir.file("zeroed/.keep"), "") &&
                qemu_vmdk(dir.file("disk.raw"), dir.file("disk.vmdk"), "streamOptimized"));
    const std::string whole = read_file(dir.file("disk.vmdk"));
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(whole.data());
    // qemu-img writes the grains in the order of the disk from the end of the metadata on, each behind
    // its marker: the grain's first sector, the data's length.
    const uint64_t first_marker = 512 * hv::le64(bytes, whole.size(), vmdk::overhead);
    const uint64_t second_marker = first_marker + (12 + hv::le32(bytes, whole.size(), first_marker + 8) + 511) / 512 * 512;
    const struct { uint64_t at; char flip; uint64_t lost; } cases[] = {{first_marker + 12 + 100, 0x20, 0},
                                                                       {second_marker, '\x80', 65536}};
    for (const auto& c : cases) {
        std::string file = whole;
        file[c.at] = static_cast<char>(file[c.at] ^ c.flip);
        ASSERT_TRUE(write_file(dir.file("disk.vmdk"), file));
        const run_result run = vmdk_road(dir.path());
        EXPECT_EQ(run.status, 0);
        const std::string told = long_erase + "prob reading media bytes " + std::to_string(c.lost) + " to " +
                                 std::to_string(c.lost + 65535) + ", read as zeros\n";
        const size_t at = run.err.find(told);
        ASSERT_NE(at, std::string::npos) << run.err;
        const std::string rest = run.err.substr(0, at) + run.err.substr(at + told.size());
        EXPECT_EQ(rest.find("prob reading"), std::string::npos);

        byte_image zeroed_disk = disk;
        zeroed_disk.text(c.lost, std::string(65536, '\0'));
        ASSERT_TRUE(sparse_vmdk(disk.size(), 128, 512).write(0, zeroed_disk.bytes()).save(dir.file("zeroed/disk.vmdk")));
        const run_result zeroed = vmdk_road(dir.file("zeroed"));
        EXPECT_EQ(after_preamble(run.out), after_preamble(zeroed.out));
        EXPECT_EQ(rest, zeroed.err);
        EXPECT_EQ(run.out.find("http://text.example/" + std::to_string(c.lost + 1024) + ","), std::string::npos);
    }
}
