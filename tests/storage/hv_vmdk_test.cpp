#include "storage/hv_vmdk.h"

#include <gtest/gtest.h>

#include <sstream>

#include "storage/hv_text_conversion.h"
#include "storage/hv_raw_disk.h"
#include "support/builder_vmdk.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {
constexpr uint32_t grain = 4096;  // the builder's default: 8 sectors
std::string filled(char c, size_t n = grain) { return std::string(n, c); }

// A base with three grains and two snapshots that each change one of them.
struct three_files {
    temp_dir dir;
    std::wstring base = wide_of(dir.file("base.vmdk")), child = wide_of(dir.file("child.vmdk")),
                 grandchild = wide_of(dir.file("grandchild.vmdk"));
    three_files() {
        sparse_vmdk(64 * 1024).cid("aaaa0001").write(0, filled('P', 3 * grain)).save(dir.file("base.vmdk"));
        sparse_vmdk(64 * 1024).cid("bbbb0002").parent_cid("aaaa0001").parent_hint("\"base.vmdk\"")
            .write(grain, filled('C')).save(dir.file("child.vmdk"));
        sparse_vmdk(64 * 1024).cid("cccc0003").parent_cid("bbbb0002").parent_hint("\"child.vmdk\"")
            .write(2 * grain, filled('G')).save(dir.file("grandchild.vmdk"));
    }
};
}  // namespace

TEST(VmwareDisk, LoadsDescriptorKeysAsSpelled) {
    temp_dir dir;
    sparse_vmdk(64 * 1024)
        .descriptor("# Disk DescriptorFile\nCID=AbCd1234\nPARENTcid=ffffffff\n  CID=indented\n"
                    "parentFileNameHint=\"Base Disk.vmdk\"\r\n\nencoding=\"UTF-8\"\nCid=Last\n")
        .save(dir.file("a.vmdk"));
    VMWARE_DISK disk;
    ASSERT_TRUE(disk.open(dir.file("a.vmdk").c_str(), false));
    EXPECT_EQ(disk.cid + "|" + disk.parent_cid + "|" + disk.parent_hint + "|" + disk.encoding,
              "Last|ffffffff|\"Base Disk.vmdk\"\r|\"UTF-8\"");

    // A descriptor with no NUL, filling its sector to the last byte, ends there and not in the directory.
    const std::string head = "CID=11111111\nparentCID=ffffffff\nparentFileNameHint=";
    const std::string hint = "\"" + filled('x', 512 - head.size() - 2) + "\"";
    sparse_vmdk(64 * 1024).descriptor(head + hint).descriptor_sectors(1).save(dir.file("f"));
    VMWARE_DISK full;
    ASSERT_TRUE(full.open(dir.file("f").c_str(), false));
    EXPECT_EQ(full.parent_hint, hint);
}

TEST(VmwareDisk, MapsThroughTablesAndReadsGrainByGrainUpToTheFileEnd) {
    temp_dir dir;
    // 128 tables fill the directory's one sector; each table spans 16 grains of 4 KiB.
    const uint64_t span = 16 * grain;
    sparse_vmdk image(8 << 20);
    byte_image file = image.table_count(128).write(span - grain, filled('A') + filled('B')).image();
    file.resize(file.size() - 1000);  // the second grain lies partly past the end
    write_file(dir.file("a.vmdk"), file.bytes());
    VMWARE_DISK disk;
    ASSERT_TRUE(disk.open(dir.file("a.vmdk").c_str(), false));
    uint64_t first = 0, second = 0;
    ASSERT_TRUE(disk.map_offset(span - 1, first) && disk.map_offset(span, second));  // consecutive tables
    EXPECT_EQ(second, first + 1);
    EXPECT_FALSE(disk.map_offset(128 * span, second));  // past the last table

    std::string buffer(grain, '?');
    uint32_t length = grain;
    ASSERT_TRUE(disk.read(disk.fd, reinterpret_cast<uint8_t*>(&buffer[0]), span - 512, length));
    EXPECT_EQ(buffer.substr(0, length), filled('A', 512) + filled('B', grain - 1000));
    EXPECT_FALSE(disk.read(disk.fd, reinterpret_cast<uint8_t*>(&buffer[0]), 0, length));

    // A table that starts at the file's last 6 bytes: one whole entry and half of the next.
    sparse_vmdk two_tables(128 * 1024);
    const uint32_t last = static_cast<uint32_t>(two_tables.write(0, filled('A')).image().size() / vmdk::sector);
    file = two_tables.directory_entry(1, last).image();
    const size_t table_at = size_t{last} * vmdk::sector;
    file.resize(table_at + 6);
    file.u32(table_at, 0x123).u8(table_at + 4, 0x45).u8(table_at + 5, 0x01);
    write_file(dir.file("cut.vmdk"), file.bytes());
    VMWARE_DISK cut;
    ASSERT_TRUE(cut.open(dir.file("cut.vmdk").c_str(), false));
    ASSERT_TRUE(cut.map_offset(16 * grain, first) && cut.map_offset(17 * grain + 5, second));
    EXPECT_EQ(first, 0x123u * vmdk::sector);
    EXPECT_EQ(second, 0x145u * vmdk::sector + 5);
    EXPECT_FALSE(cut.map_offset(18 * grain, second));
}

TEST(VmwareCollection, ReadsNewestGrainFirstInAnyOrder) {
    three_files f;
    VMWARE_COLLECTION disks(false);
    ASSERT_TRUE(disks.open_files({f.grandchild, f.base, f.child}) && disks.link() && disks.complete);
    EXPECT_EQ(disks.chain.size(), 3u);
    EXPECT_EQ(disks.chain.front()->cid + disks.current->cid, "aaaa0001cccc0003");
    // Four grains from three files and none, in one call.
    std::string out(4 * grain - 100, '?');
    uint32_t length = 4 * grain - 100;
    EXPECT_TRUE(disks.read(&out[0], 100, length));
    EXPECT_EQ(out, filled('P', grain - 100) + filled('C') + filled('G') + filled('\0'));

    // Through the device view: a read crossing the capacity keeps its length, zeros behind.
    RAW_DISK_IO disk({f.child, f.base}, false, false);
    EXPECT_EQ(disk.get_size(), 64u * 1024);
    out.assign(2 * grain, '?');
    length = 2 * grain;
    ASSERT_TRUE(disk.read(&out[0], length, 64 * 1024 - grain));
    EXPECT_EQ(out.substr(0, length), filled('\0', 2 * grain));
    EXPECT_FALSE(disk.read(&out[0], length, 64 * 1024));
    EXPECT_FALSE(RAW_DISK_IO({f.grandchild, f.base}, false, false).valid());  // the middle file is missing

    // A grain whose table lies past the child's end is read from the parent.
    sparse_vmdk(64 * 1024, 8, 1).cid("dddd0004").parent_cid("aaaa0001").write(grain, filled('X'))
        .directory_entry(1, 100000).save(f.dir.file("lost.vmdk"));
    VMWARE_COLLECTION lost(false);
    ASSERT_TRUE(lost.open_files({wide_of(f.dir.file("lost.vmdk")), f.base}) && lost.link());
    out.assign(grain, '?');
    length = grain;
    EXPECT_TRUE(lost.read(&out[0], grain, length));
    EXPECT_EQ(out, filled('P'));
}

TEST(VmwareCollection, CheckFilesNotesAndSuggests) {
    three_files f;
    const std::string folder = f.dir.path() + "/";
    sparse_vmdk(64 * 1024).cid("dddd0004").parent_cid("dddd0004").save(folder + "self.vmdk");
    sparse_vmdk(64 * 1024).cid("eeee0005").parent_cid("aaaa0001").encoding("\"windows-1252\"")
        .parent_hint("\"C:\\VMs\\Old\\base.vmdk\"").save(folder + "win.vmdk");
    sparse_vmdk(64 * 1024).cid("ffff0006").parent_cid("aaaa0001").parent_hint("\"sub\\base.vmdk\"")
        .save(folder + "utf8.vmdk");
    const auto note = [&](const std::string& child, const std::string& parent) {
        return "=> vmdk file: " + folder + child + "\n depends on parent vmdk \"" + parent + "\"\n";
    };
    const auto paths = [&](const std::vector<std::string>& names) {
        std::vector<std::wstring> out;
        for (const std::string& name : names) out.push_back(wide_of(folder + name));
        return out;
    };
    const std::tuple<std::vector<std::string>, std::string, std::vector<std::string>> rows[] = {
        {{"child.vmdk"}, note("child.vmdk", "base.vmdk"), {"child.vmdk", "base.vmdk"}},
        // Child and grandparent: the parent is found, and a second pass links all three.
        {{"grandchild.vmdk", "base.vmdk"}, note("grandchild.vmdk", "child.vmdk"),
         {"grandchild.vmdk", "base.vmdk", "child.vmdk"}},
        {{"self.vmdk"}, "Child VMDK CID errors, aborting\n", {"self.vmdk"}},
        // A path of another machine: its name in the first file's folder, taken without a test.
        {{"win.vmdk"}, note("win.vmdk", folder + "base.vmdk"), {"win.vmdk", "base.vmdk"}},
        // With UTF-8 the separator is '/': the hint has no folder and the folder goes in front whole.
        {{"utf8.vmdk"}, "Child VMDK points to a parent VMDK that doesn't exist, aborting\n", {"utf8.vmdk"}},
    };
    for (const auto& r : rows) {
        std::vector<std::wstring> suggestion;
        std::ostringstream messages;
        const bool complete = check_vmdk_list(paths(std::get<0>(r)), messages, suggestion);
        EXPECT_EQ(std::make_tuple(complete, messages.str(), suggestion),
                  std::make_tuple(std::get<1>(r).empty(), std::get<1>(r), paths(std::get<2>(r))));
    }
}
