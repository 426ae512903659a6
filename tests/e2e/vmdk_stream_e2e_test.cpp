// streamOptimized disks as qemu-img writes them (VMware's exports, with the directory at the end:
// tests/storage/hv_vmdk_stream_test.cpp), read through the VMDK road: the rows and messages of the
// monolithic sparse form of the same raw disk, chains included; a grain that doesn't inflate is told and
// reads as zeros.
#include <gtest/gtest.h>

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

}  // namespace

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

// A byte changed in the deflate data of qemu-img's first grain: its 64 KiB are told, once, and read as
// zeros; the rows are those of the raw disk with them zeroed.
TEST(StreamVmdkE2E, GrainThatDoesNotInflateIsToldAndReadsAsZeros) {
    RAVEL_NEEDS(missing_stream_tools());
    temp_dir dir;
    byte_image disk = evidence_disk();
    ASSERT_TRUE(write_file(dir.file("disk.raw"), disk.bytes()) && write_file(dir.file("zeroed/.keep"), "") &&
                qemu_vmdk(dir.file("disk.raw"), dir.file("disk.vmdk"), "streamOptimized"));
    std::string file = read_file(dir.file("disk.vmdk"));
    // qemu-img writes the grains, in the order of the disk, from the end of the metadata on.
    const uint64_t first_marker = 512 * hv::le64(reinterpret_cast<const uint8_t*>(file.data()), file.size(), vmdk::overhead);
    file[first_marker + 12 + 100] = static_cast<char>(file[first_marker + 12 + 100] ^ 0x20);
    ASSERT_TRUE(write_file(dir.file("disk.vmdk"), file));

    const run_result run = vmdk_road(dir.path());
    EXPECT_EQ(run.status, 0);
    const std::string told = long_erase + "prob reading media bytes 0 to 65535, read as zeros\n";
    const size_t at = run.err.find(told);
    ASSERT_NE(at, std::string::npos) << run.err;
    const std::string rest = run.err.substr(0, at) + run.err.substr(at + told.size());
    EXPECT_EQ(rest.find("prob reading"), std::string::npos);

    disk.text(0, std::string(65536, '\0'));
    ASSERT_TRUE(sparse_vmdk(disk.size(), 128, 512).write(0, disk.bytes()).save(dir.file("zeroed/disk.vmdk")));
    const run_result zeroed = vmdk_road(dir.file("zeroed"));
    EXPECT_EQ(after_preamble(run.out), after_preamble(zeroed.out));
    EXPECT_EQ(rest, zeroed.err);
    EXPECT_EQ(run.out.find("http://text.example/1024,"), std::string::npos);
}
