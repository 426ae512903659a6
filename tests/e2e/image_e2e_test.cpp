// Disks made by the real tools, in the test: a FAT volume (mkfs.fat, mtools) holding a profile tree with a
// container written into the holes of a full volume, a live History and a deleted container, and an ext4
// volume (mkfs.ext4 -d) with another History and a WebCache database, behind an MBR partition table
// (sfdisk). -image ties each row to its file: a live container or database gives the rows of its own file
// on -f, the deleted container's come out "deleted", no entry comes twice; every format libtsk opens gives the same rows; a damaged volume is told
// and still carved. An NTFS volume (mkntfs, written through an ntfs-3g mount) runs when FUSE mounts work.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "storage/hv_tsk.h"
#include "webcache/hv_webcache.h"
#include "support/images.h"
#include "support/read_csv.h"
#include "support/run_ravel.h"

using namespace testsupport;

namespace {

const std::string alice = "Users/alice/AppData/Local/Microsoft/Windows";
const std::string content = alice + "/Temporary Internet Files/Content.IE5/index.dat";
const std::string history = alice + "/History/History.IE5/index.dat";
const std::string erin = "Users/erin/AppData/Local/Microsoft/Windows/History/History.IE5/index.dat";
const std::string database = "Users/erin/AppData/Local/Microsoft/Windows/WebCache/WebCacheV01.dat";
constexpr size_t source_column = 16, offset_column = 17, image_file_column = 20, state_column = 21;

std::string missing_image_road() {
    if (!tsk_image::offered()) return "ravel built without libtsk (Debian package libtsk-dev)";
    if (!webcache_database::offered()) return "ravel built without libesedb (Debian package libesedb-dev)";
    std::string missing = missing_real_fixtures();
    for (const std::string& tools : {missing_tools({"mkfs.fat"}, "dosfstools"), missing_tools({"mmd", "mcopy", "mdel"}, "mtools"),
                                     missing_tools({"sfdisk"}, "fdisk"), missing_tools({"mkfs.ext4"}, "e2fsprogs")})
        if (!tools.empty()) missing += (missing.empty() ? "" : "; ") + tools;
    return missing;
}

std::string real_database() { return real_fixtures_dir() + "/WebCache/WebCacheV01.dat"; }

// The disk in `dir`/disk.raw: FAT at sector 2048, ext4 (with erin's History and WebCache database) at
// sector 36864.
bool make_disk(const temp_dir& dir) {
    const std::string d = testsupport::quoted(dir.path());
    std::string script = "set -e; cd " + d + "; export MTOOLS_SKIP_CHECK=1; mkfs.fat -C -s 1 -S 512 fat.img 16384; ";
    std::string folder;
    for (const std::string& part : {std::string("Users"), std::string("alice"), std::string("AppData"), std::string("Local"),
                                    std::string("Microsoft"), std::string("Windows")}) {
        folder += "/" + part;
        script += "mmd -i fat.img " + testsupport::quoted("::" + folder) + "; ";
    }
    for (const char* sub : {"/History", "/History/History.IE5", "/Temporary Internet Files",
                                   "/Temporary Internet Files/Content.IE5"})
        script += "mmd -i fat.img " + testsupport::quoted("::/" + alice + sub) + "; ";
    script += "mmd -i fat.img ::/Users/bob ::/Users/bob/History; ";
    // 4 KiB files with every other one deleted: the container goes into the holes, in pieces.
    script += "head -c 4096 /dev/zero | tr '\\0' 'f' > fill; for i in $(seq 1 40); do mcopy -i fat.img fill ::/fill$i; done; "
              "for i in $(seq 1 2 40); do mdel -i fat.img ::/fill$i; done; ";
    script += "mcopy -i fat.img " + testsupport::quoted(real_container("Content.IE5")) + " " + testsupport::quoted("::/" + content) + "; ";
    script += "mcopy -i fat.img " + testsupport::quoted(real_container("History.IE5")) + " " + testsupport::quoted("::/" + history) + "; ";
    script += "mcopy -i fat.img " + testsupport::quoted(real_container("deleted")) + " ::/Users/bob/History/index.dat; ";
    script += "mdel -i fat.img ::/Users/bob/History/index.dat; ";
    script += "mkdir -p " + testsupport::quoted("tree/" + erin.substr(0, erin.rfind('/'))) + "; cp " + testsupport::quoted(real_container("History.IE5")) + " " +
              testsupport::quoted("tree/" + erin) + "; mkdir -p " +
              testsupport::quoted("tree/" + database.substr(0, database.rfind('/'))) + "; cp " +
              testsupport::quoted(real_database()) + " " + testsupport::quoted("tree/" + database) +
              "; mkfs.ext4 -q -F -b 4096 -d tree ext.img 24M; ";
    script += "truncate -s 64M disk.raw; printf 'start=2048, size=32768, type=c\\nstart=36864, size=49152, type=83\\n' | "
              "sfdisk -q disk.raw; dd if=fat.img of=disk.raw bs=512 seek=2048 conv=notrunc status=none; "
              "dd if=ext.img of=disk.raw bs=512 seek=36864 conv=notrunc status=none";
    return write_file(dir.file("make.sh"), script) && shell("sh " + testsupport::quoted(dir.file("make.sh")));
}

// A row without the columns that say where it lies: source, offset, file in image, file state.
csv_record content_of(csv_record row) {
    row.resize(std::min<size_t>(row.size(), image_file_column));
    row.erase(row.begin() + source_column, row.begin() + offset_column + 1);
    return row;
}

// The -complete rows of a container on -f, from a folder whose path words are those it has in the image.
std::vector<csv_record> file_rows(const temp_dir& dir, const std::string& fixture, const std::string& path) {
    EXPECT_TRUE(write_file(dir.file("f/" + path), read_file(real_container(fixture))));
    std::vector<csv_record> rows;
    for (const csv_record& row : complete_rows(run_ravel({"-f", path, "-complete"}, "", {}, dir.file("f")).out))
        rows.push_back(content_of(row));
    return rows;
}

}  // namespace

TEST(ImageE2E, RowsAreTiedToTheFilesThatHoldThem) {
    RAVEL_NEEDS(missing_image_road());
    temp_dir dir;
    ASSERT_TRUE(make_disk(dir));
    const run_result run = run_ravel({"-image", "disk.raw", "-complete"}, "", {}, dir.path());
    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<csv_record> rows = complete_rows(run.out);
    ASSERT_FALSE(rows.empty());

    std::map<std::string, std::vector<csv_record>> by_file;
    std::set<std::string> offsets, deleted_urls;
    for (const csv_record& row : rows) {
        ASSERT_EQ(row.size(), 22u);
        EXPECT_TRUE(row[offset_column].empty() || offsets.insert(row[offset_column]).second)
            << "entry twice at " << row[offset_column];
        if (row[state_column] == "deleted") deleted_urls.insert(row[9]);
        if (row[source_column] != "disk.raw") by_file[row[source_column]].push_back(row);
    }
    // Each live container, the fragmented one included, gives the rows of its own file.
    const struct {
        const char* fixture;
        std::string path;
    } live[] = {{"Content.IE5", "2048:/" + content}, {"History.IE5", "2048:/" + history}, {"History.IE5", "36864:/" + erin}};
    for (const auto& file : live) {
        const auto found = by_file.find("disk.raw:" + file.path);
        ASSERT_NE(found, by_file.end()) << file.path;
        std::vector<csv_record> image_rows;
        for (const csv_record& row : found->second) {
            EXPECT_EQ(row[image_file_column], file.path);
            EXPECT_EQ(row[state_column], "allocated");
            image_rows.push_back(content_of(row));
        }
        EXPECT_EQ(image_rows, file_rows(dir, file.fixture, file.path.substr(file.path.find('/') + 1))) << file.path;
    }
    // The database's records, as -f gives them, each at its image's place on the media (LeakFiles' rows,
    // read through the library only, have none).
    std::vector<csv_record> records, file_records;
    for (const csv_record& row : by_file["disk.raw:36864:/" + database]) {
        EXPECT_EQ(row[offset_column].empty(), row[8] == "LEAK") << row[9];
        EXPECT_EQ(row[image_file_column] + " " + row[state_column], "36864:/" + database + " allocated");
        records.push_back(content_of(row));
    }
    for (const csv_record& row : complete_rows(run_ravel({"-f", real_database(), "-complete"}).out))
        file_records.push_back(content_of(row));
    EXPECT_FALSE(records.empty());
    EXPECT_EQ(records, file_records);
    EXPECT_EQ(by_file.size(), 4u);
    // The deleted container's entries come from the media scan, tied to its deleted name.
    std::set<std::string> fixture_urls;
    for (const csv_record& row : complete_rows(run_ravel({"-f", real_container("deleted"), "-complete"}).out)) fixture_urls.insert(row[9]);
    EXPECT_EQ(deleted_urls, fixture_urls);
    for (const csv_record& row : rows) {
        if (row[state_column] != "deleted") continue;
        EXPECT_EQ(row[image_file_column].rfind("2048:/Users/bob/History/", 0), 0u) << row[image_file_column];
    }

    // The default report names the file after the image, or the image alone.
    std::set<std::string> sources;
    for (const csv_record& row : read_csv(after_preamble(run_ravel({"-image", "disk.raw"}, "", {}, dir.path()).out)))
        sources.insert(row.back());
    EXPECT_EQ(sources, (std::set<std::string>{"index.dat filename", "disk.raw", "disk.raw:2048:/" + content,
                                               "disk.raw:2048:/" + history, "disk.raw:36864:/" + erin,
                                               "disk.raw:36864:/" + database}));

    // The timeline says the same.
    const std::string jsonl = run_ravel({"-image", "disk.raw", "-timeline", "jsonl"}, "", {}, dir.path()).out;
    EXPECT_NE(jsonl.find("\"file_in_image\":\"2048:/" + content + "\",\"file_state\":\"allocated\""), std::string::npos);
    EXPECT_NE(jsonl.find("\"file_state\":\"deleted\""), std::string::npos);
}

TEST(ImageE2E, EveryFormatGivesTheSameRows) {
    RAVEL_NEEDS(missing_image_road());
    RAVEL_NEEDS(missing_qemu_tools());
    RAVEL_NEEDS(missing_ewf_tools());
    temp_dir dir;
    ASSERT_TRUE(make_disk(dir));
    auto rows_of = [&](const std::string& image) {
        std::string out = after_preamble(run_ravel({"-image", image, "-complete"}, "", {}, dir.path()).out);
        for (size_t at = out.find(image); at != std::string::npos; at = out.find(image, at)) out.replace(at, image.size(), "IMAGE");
        return out;
    };
    const std::string raw = rows_of("disk.raw");
    ASSERT_NE(raw.find("IMAGE:2048:/"), std::string::npos);
    const std::string d = testsupport::quoted(dir.path());
    ASSERT_TRUE(shell("cd " + d + " && split -b 10M -d -a 3 --numeric-suffixes=1 disk.raw split.") &&
                ewf_acquire(dir.file("disk.raw"), dir.file("case"), "fast", 8 << 20) &&
                shell("cd " + d + " && qemu-img convert -q -f raw -O vmdk disk.raw disk.vmdk && "
                      "qemu-img convert -q -f raw -O vpc -o force_size=on disk.raw disk.vhd && "
                      "qemu-img convert -q -f raw -O vhdx disk.raw disk.vhdx"));
    for (const char* image : {"split.001", "case.E01", "disk.vmdk", "disk.vhd", "disk.vhdx"}) EXPECT_EQ(rows_of(image), raw) << image;
}

TEST(ImageE2E, AVolumeWithoutAFileSystemIsToldAndCarved) {
    RAVEL_NEEDS(missing_image_road());
    temp_dir dir;
    ASSERT_TRUE(make_disk(dir));
    ASSERT_TRUE(shell("dd if=/dev/zero of=" + testsupport::quoted(dir.file("disk.raw")) + " bs=512 seek=2048 count=1 conv=notrunc"));
    const run_result run = run_ravel({"-image", "disk.raw", "-complete"}, "", {}, dir.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.err.find("prob reading disk.raw: volume at sector 2048: no file system found, scanned as raw bytes\n"),
              std::string::npos) << run.err;
    size_t carved = 0, erins = 0;
    for (const csv_record& row : complete_rows(run.out)) {
        carved += row[source_column] == "disk.raw" && row[state_column] == "unallocated";
        erins += row[source_column] == "disk.raw:36864:/" + erin;
    }
    // Content, History and the deleted container, carved; erin's History still read as its file.
    EXPECT_EQ(carved, complete_rows(run_ravel({"-f", real_container("Content.IE5"), "-complete"}).out).size() +
                          complete_rows(run_ravel({"-f", real_container("History.IE5"), "-complete"}).out).size() +
                          complete_rows(run_ravel({"-f", real_container("deleted"), "-complete"}).out).size());
    EXPECT_EQ(erins, complete_rows(run_ravel({"-f", real_container("History.IE5"), "-complete"}).out).size());

    const run_result missing = run_ravel({"-image", "nothing.raw"}, "", {}, dir.path());
    EXPECT_EQ(missing.status, 255);
    EXPECT_EQ(missing.err.rfind("prob opening nothing.raw for read, aborting\n", 0), 0u) << missing.err;
    EXPECT_EQ(after_preamble(missing.out), "");
}

// NTFS written through ntfs-3g, with a container in fragments and a deleted one: needs root and a FUSE
// mount.
TEST(ImageE2E, NtfsVolumeWrittenThroughNtfs3g) {
    RAVEL_NEEDS(missing_image_road());
    RAVEL_NEEDS(missing_tools({"mkntfs", "ntfs-3g"}, "ntfs-3g"));
    RAVEL_NEEDS(geteuid() == 0 && access("/dev/fuse", R_OK | W_OK) == 0 ? "" : "needs root and /dev/fuse for an ntfs-3g mount");
    temp_dir dir;
    const std::string d = testsupport::quoted(dir.path());
    const std::string folder = "mnt/" + content.substr(0, content.rfind('/'));
    const bool mounted = shell("cd " + d + " && truncate -s 16M ntfs.img && mkntfs -q -F -f ntfs.img && mkdir mnt && "
                               "ntfs-3g ntfs.img mnt");
    RAVEL_NEEDS(mounted ? "" : "the ntfs-3g mount failed (FUSE)");
    // The container is written 8 KiB at a time, a filler file after each piece: it lies in fragments.
    const bool written = shell("cd " + d + " && mkdir -p " + testsupport::quoted(folder) + " mnt/Users/dave/History && " +
                               "split -b 8192 -d " + testsupport::quoted(real_container("Content.IE5")) + " part. && " +
                               "head -c 8192 /dev/zero | tr '\\0' 'f' > filler && for p in part.*; do cat $p >> " +
                               testsupport::quoted("mnt/" + content) + " && sync && cp filler mnt/$p && sync || exit 1; done && cp " +
                               testsupport::quoted(real_container("deleted")) + " mnt/Users/dave/History/index.dat && sync && "
                               "rm mnt/Users/dave/History/index.dat");
    ASSERT_TRUE(shell("cd " + d + " && umount mnt") && written);
    const run_result run = run_ravel({"-image", "ntfs.img", "-complete"}, "", {}, dir.path());
    ASSERT_EQ(run.status, 0);
    std::vector<csv_record> live;
    size_t deleted = 0;
    for (const csv_record& row : complete_rows(run.out)) {
        if (row[source_column] == "ntfs.img:/" + content) live.push_back(content_of(row));
        deleted += row[state_column] == "deleted" && row[image_file_column] == "/Users/dave/History/index.dat";
    }
    EXPECT_EQ(live, file_rows(dir, "Content.IE5", content));
    EXPECT_EQ(deleted, complete_rows(run_ravel({"-f", real_container("deleted"), "-complete"}).out).size());
}
