#include "storage/hv_vmdk.h"

#include <gtest/gtest.h>

#include <sstream>

#include "cmdline/hv_cmd_params.h"
#include "storage/hv_fileio.h"
#include "storage/hv_raw_disk.h"
#include "support/builder_vmdk.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

constexpr uint64_t grain = 4096;  // the builder's default: 8 sectors

std::string filled(char c, size_t n = grain) { return std::string(n, c); }

std::string read_virtual(VMWARE_COLLECTION& disks, uint64_t offset, uint32_t length) {
    std::string out(length, '?');
    uint32_t n = length;
    if (!disks.read(&out[0], offset, n)) return "<failed>";
    out.resize(n);
    return out;
}

// A base with three grains and two snapshots that each change one of them.
struct three_files {
    temp_dir dir;
    std::wstring base, child, grandchild;
    three_files() {
        sparse_vmdk(64 * 1024).cid("aaaa0001").write(0, filled('P', 3 * grain)).save(dir.file("base.vmdk"));
        sparse_vmdk(64 * 1024).cid("bbbb0002").parent_cid("aaaa0001").parent_hint("\"base.vmdk\"")
            .write(grain, filled('C')).save(dir.file("child.vmdk"));
        sparse_vmdk(64 * 1024).cid("cccc0003").parent_cid("bbbb0002").parent_hint("\"child.vmdk\"")
            .write(2 * grain, filled('G')).save(dir.file("grandchild.vmdk"));
        base = wide_of(dir.file("base.vmdk"));
        child = wide_of(dir.file("child.vmdk"));
        grandchild = wide_of(dir.file("grandchild.vmdk"));
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
    EXPECT_EQ(disk.cid, "Last");
    EXPECT_EQ(disk.parent_cid, "ffffffff");
    EXPECT_EQ(disk.parent_hint, "\"Base Disk.vmdk\"\r");
    EXPECT_EQ(disk.encoding, "\"UTF-8\"");
    EXPECT_EQ(disk.descriptor_lines.size(), 7u);
    EXPECT_EQ(disk.capacity_bytes(), 64u * 1024);

    // A descriptor that fills its sector to the last byte ends there, not in the directory behind it.
    std::string text = "CID=11111111\nparentCID=ffffffff\nparentFileNameHint=\"";
    text += std::string(512 - text.size() - 1, 'x') + "\"";
    sparse_vmdk(64 * 1024).descriptor(text).descriptor_sectors(1).save(dir.file("full.vmdk"));
    VMWARE_DISK full;
    ASSERT_TRUE(full.open(dir.file("full.vmdk").c_str(), false));
    EXPECT_EQ(full.parent_hint.size(), 512 - std::string("CID=11111111\nparentCID=ffffffff\n").size() - 19);
    EXPECT_EQ(full.parent_hint.back(), '"');
}

TEST(VmwareDisk, MapsOffsetsThroughTables) {
    temp_dir dir;
    // 128 tables fill the directory's one sector; each table spans 16 grains of 4 KiB.
    sparse_vmdk image(8 << 20);
    image.table_count(128).write(64 * 1024 - 1, "ab");
    image.save(dir.file("a.vmdk"));
    VMWARE_DISK disk;
    ASSERT_TRUE(disk.open(dir.file("a.vmdk").c_str(), false));
    ASSERT_EQ(disk.table_span, 64u * 1024);
    ASSERT_EQ(disk.grain_tables.size(), 128u);
    uint64_t first = 0, second = 0, ignored = 0;
    ASSERT_TRUE(disk.map_offset(disk.table_span - 1, first) && disk.map_offset(disk.table_span, second));
    EXPECT_EQ(first, image.table_sector(128) * 512 + grain - 1);
    EXPECT_EQ(second, image.table_sector(128) * 512 + grain);
    EXPECT_FALSE(disk.map_offset(0, ignored));                          // never written
    EXPECT_FALSE(disk.map_offset(128 * disk.table_span, ignored));      // past the last table
}

TEST(VmwareDisk, ReadsGrainByGrainUpToTheFileEnd) {
    temp_dir dir;
    byte_image file = sparse_vmdk(64 * 1024).write(0, filled('A') + filled('B')).image();
    file.resize(file.size() - 1000);  // the second grain lies partly past the end
    write_file(dir.file("a.vmdk"), file.bytes());
    VMWARE_DISK disk;
    ASSERT_TRUE(disk.open(dir.file("a.vmdk").c_str(), false));

    std::string buffer(grain, '?');
    uint32_t length = grain;
    ASSERT_TRUE(disk.read(disk.fd, reinterpret_cast<uint8_t*>(&buffer[0]), grain - 512, length));
    EXPECT_EQ(length, grain - 1000 + 512);
    EXPECT_EQ(buffer.substr(0, length), filled('A', 512) + filled('B', grain - 1000));
    length = 100;
    EXPECT_FALSE(disk.read(disk.fd, reinterpret_cast<uint8_t*>(&buffer[0]), 2 * grain, length));  // no grain
}

TEST(VmwareCollection, ReadsNewestGrainFirstInEitherOrder) {
    three_files f;
    for (auto order : {std::vector<std::wstring>{f.grandchild, f.base, f.child},
                       std::vector<std::wstring>{f.base, f.child, f.grandchild}}) {
        VMWARE_COLLECTION disks(false);
        ASSERT_TRUE(disks.open_files(order) && disks.link() && disks.complete);
        ASSERT_EQ(disks.chain.size(), 3u);
        EXPECT_EQ(disks.chain.front()->cid, "aaaa0001");
        EXPECT_EQ(disks.current->cid, "cccc0003");
        // Four grains from three files and none, in one call.
        EXPECT_EQ(read_virtual(disks, 100, 4 * grain - 100),
                  filled('P', grain - 100) + filled('C') + filled('G') + filled('\0'));
    }
    // The same through the device view: a read crossing the capacity keeps its length, zeros behind.
    RAW_DISK_IO disk({f.child, f.base}, false, false);
    ASSERT_TRUE(disk.valid());
    EXPECT_EQ(disk.get_size(), 64u * 1024);
    std::string buffer(2 * grain, '?');
    uint32_t length = 2 * grain;
    ASSERT_TRUE(disk.read(&buffer[0], length, 64 * 1024 - grain));
    EXPECT_EQ(length, 2 * grain);
    EXPECT_EQ(buffer, filled('\0', 2 * grain));
    length = 1;
    EXPECT_FALSE(disk.read(&buffer[0], length, 64 * 1024));
    // A list without the middle file gives a closed disk.
    EXPECT_FALSE(RAW_DISK_IO({f.grandchild, f.base}, false, false).valid());
}

TEST(VmwareCollection, MissingTableFallsThroughToParent) {
    temp_dir dir;
    const uint64_t second_table = 16 * grain;
    sparse_vmdk(128 * 1024).cid("aaaa0001").write(second_table, filled('P')).save(dir.file("base.vmdk"));
    // The child's second table lies past its file's end: the grain it names can't be found.
    sparse_vmdk(128 * 1024).cid("bbbb0002").parent_cid("aaaa0001").write(second_table, filled('C'))
        .directory_entry(1, 100000).save(dir.file("child.vmdk"));
    VMWARE_COLLECTION disks(false);
    ASSERT_TRUE(disks.open_files({wide_of(dir.file("child.vmdk")), wide_of(dir.file("base.vmdk"))}) && disks.link());
    EXPECT_EQ(read_virtual(disks, second_table, grain), filled('P'));
}

TEST(VmwareCollection, CheckFilesNotesAndSuggests) {
    three_files f;
    std::string folder = f.dir.path() + "/";
    sparse_vmdk(64 * 1024).cid("dddd0004").parent_cid("dddd0004").save(f.dir.file("self.vmdk"));
    sparse_vmdk(64 * 1024).cid("eeee0005").parent_cid("aaaa0001").encoding("\"windows-1252\"")
        .parent_hint("\"C:\\VMs\\Old\\base.vmdk\"").save(f.dir.file("win.vmdk"));
    sparse_vmdk(64 * 1024).cid("ffff0006").parent_cid("aaaa0001").parent_hint("\"sub\\base.vmdk\"")
        .save(f.dir.file("utf8.vmdk"));
    struct row {
        std::vector<std::string> files;
        bool complete;
        std::string messages;
        std::vector<std::string> suggestion;
    };
    const row rows[] = {
        {{"child.vmdk", "base.vmdk"}, true, "", {"child.vmdk", "base.vmdk"}},
        {{"child.vmdk"}, false,
         "=> vmdk file: " + folder + "child.vmdk\n depends on parent vmdk \"base.vmdk\"\n",
         {"child.vmdk", "base.vmdk"}},
        // Child and grandparent: the parent is found, and a second pass links all three.
        {{"grandchild.vmdk", "base.vmdk"}, false,
         "=> vmdk file: " + folder + "grandchild.vmdk\n depends on parent vmdk \"child.vmdk\"\n",
         {"grandchild.vmdk", "base.vmdk", "child.vmdk"}},
        {{"self.vmdk"}, false, "Child VMDK CID errors, aborting\n", {"self.vmdk"}},
        // A path of another machine: its name in the first file's folder, taken without a test.
        {{"win.vmdk"}, false,
         "=> vmdk file: " + folder + "win.vmdk\n depends on parent vmdk \"" + folder + "base.vmdk\"\n",
         {"win.vmdk", "base.vmdk"}},
        // With UTF-8 the separator is '/': the hint has no folder and the folder goes in front whole.
        {{"utf8.vmdk"}, false, "Child VMDK points to a parent VMDK that doesn't exist, aborting\n", {"utf8.vmdk"}},
        {{"child.vmdk", "none.vmdk"}, false, folder + "none.vmdk can't be opened\n",
         {"child.vmdk", "none.vmdk"}},
    };
    for (const row& r : rows) {
        std::vector<std::wstring> files, expected, suggestion;
        for (const std::string& name : r.files) files.push_back(wide_of(folder + name));
        for (const std::string& name : r.suggestion) expected.push_back(wide_of(folder + name));
        std::ostringstream messages;
        EXPECT_EQ(check_vmdk_list(files, messages, suggestion), r.complete) << r.files[0];
        EXPECT_EQ(messages.str(), r.messages) << r.files[0];
        EXPECT_EQ(suggestion, expected) << r.files[0];
    }
}

namespace {
std::vector<std::wstring> seen_files;
bool accept_all(std::vector<std::wstring> const& files, std::ostream&, std::vector<std::wstring>&) {
    seen_files = files;
    return true;
}
}  // namespace

TEST(ParseVmdkList, SplitsTheFirstValueOnly) {
    struct row {
        std::vector<std::string> args;
        std::vector<std::wstring> files;
        uint64_t offset;
    };
    const row rows[] = {
        {{"ravel", "-vmdk", " a.vmdk | b.vmdk "}, {L"a.vmdk", L"b.vmdk"}, 7},
        {{"ravel", "-vmdk", "a;b|c"}, {L"a;b", L"c"}, 7},
        {{"ravel", "-VMDK", "a", "-vmdk", "b,c", "-offset", "0x200"}, {L"a", L"b,c"}, 512},
        {{"ravel", "-vmdk", "a", "-offset", "o17"}, {L"a"}, 15},
        {{"ravel", "-vmdk", "a", "-offset", "size"}, {L"a"}, 7},
    };
    for (const row& r : rows) {
        cmd_opts opts;
        opts.image_offset = 7;
        std::vector<std::string> args = r.args;
        EXPECT_TRUE(parse_vmdk_list(opts, args, accept_all));
        EXPECT_EQ(seen_files, r.files) << r.args[2];
        EXPECT_EQ(opts.vmdk_files, r.files) << r.args[2];
        EXPECT_EQ(opts.image_offset, r.offset) << r.args[2];
        EXPECT_EQ(args, std::vector<std::string>{"ravel"});
    }
}
