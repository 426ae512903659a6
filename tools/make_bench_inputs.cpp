// make_bench_inputs bench OUT_DIR: the benchmark's inputs, written by the project's own builder:
//   dense.dat    a container just under 16 MiB holding some 30,000 entries (the whole-file road),
//   carved.img   256 MiB of random bytes with containers at scattered offsets (the big-file road),
//   carved.vmdk  the same bytes as the start of a 1 GiB monolithic sparse extent (the device road),
//   many/        10,000 copies of a 48 KiB container of some 35 entries, listed in many.list,
//   inputs.txt   one line per file: its name and the number of rows it must give.
// make_bench_inputs seeds CORPUS_DIR: the fuzzers' seed corpus, one folder per target; the ewf target's
//   seeds are E01 sets that ewfacquire makes (none without it), the image target's FAT volumes that
//   mkfs.fat and mtools make (none without them).
// Everything is drawn from a fixed seed, so every run writes the same bytes.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/builder.h"
#include "support/builder_vmdk.h"

using namespace testsupport;

namespace {

constexpr uint64_t MiB = 1024 * 1024;
constexpr uint64_t dense_limit = 16 * MiB - 4096;  // "just under" the whole-file limit
constexpr uint64_t carved_size = 256 * MiB;
constexpr uint64_t vmdk_capacity = 1024 * MiB;
constexpr uint32_t vmdk_grain_sectors = 128;  // 64 KiB grains, 512 entries a table: the common layout
constexpr uint32_t vmdk_entries_per_table = 512;
constexpr int many_copies = 10000;

// xorshift64*: fast, and the same on every machine.
struct rng {
    uint64_t s;
    explicit rng(uint64_t seed) : s(seed ? seed : 1) {}
    uint64_t next() {
        s ^= s >> 12;
        s ^= s << 25;
        s ^= s >> 27;
        return s * 2685821657736338717ull;
    }
    uint32_t below(uint32_t n) { return static_cast<uint32_t>(next() % n); }
    const char* pick(const std::vector<const char*>& from) { return from[below(static_cast<uint32_t>(from.size()))]; }
};

bool make_dir(const std::string& path) { return ::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST; }

bool save(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) std::fprintf(stderr, "make_bench_inputs: can't write %s\n", path.c_str());
    return static_cast<bool>(out);
}

// One plausible entry: a cached page, image or script with its response header, a visited-page
// record, a deleted (LEAK) entry; texts of varying length so entries take 2 to 8 blocks.
url_entry plausible_entry(rng& r, uint32_t number) {
    static const std::vector<const char*> hosts = {
        "www.example.com", "static.example.net", "cdn.example.org", "news.example.co.uk", "mail.example.com",
        "images.example-photos.com", "ads.tracker.example", "www.bank.example", "forum.example.info"};
    static const std::vector<const char*> kinds = {"htm", "png", "js", "css", "gif", "jpg", "aspx", "json"};
    static const std::vector<const char*> users = {"alice", "bob", "carol", "Administrator", "svc_backup"};
    static const std::vector<const char*> types = {"text/html; charset=utf-8", "image/png", "application/javascript",
                                                   "text/css", "image/gif", "image/jpeg", "application/json"};
    url_entry e;
    const char* host = r.pick(hosts);
    const char* kind = r.pick(kinds);
    const char* user = r.pick(users);
    std::string path = "/";
    for (uint32_t depth = 1 + r.below(4); depth > 0; --depth) path += "d" + std::to_string(r.below(5000)) + "/";
    path += "item" + std::to_string(number) + "." + kind;
    if (r.below(3) == 0) path += "?q=" + std::to_string(r.next() % 100000000) + "&ref=" + std::to_string(r.below(999));

    e.last_modified = filetime_of(2008 + static_cast<int>(r.below(8)), 1 + static_cast<int>(r.below(12)),
                                  1 + static_cast<int>(r.below(28)), static_cast<int>(r.below(24)),
                                  static_cast<int>(r.below(60)), static_cast<int>(r.below(60)),
                                  static_cast<int>(r.below(1000)));
    e.last_access = e.last_modified + uint64_t{r.below(86400)} * 10000000ull;
    e.expires_date = dos_date_of(2016, 1 + static_cast<int>(r.below(12)), 1 + static_cast<int>(r.below(28)));
    e.expires_time = dos_time_of(static_cast<int>(r.below(24)), static_cast<int>(r.below(60)), 0);
    e.last_sync_date = dos_date_of(2015, 1 + static_cast<int>(r.below(12)), 1 + static_cast<int>(r.below(28)));
    e.last_sync_time = dos_time_of(static_cast<int>(r.below(24)), static_cast<int>(r.below(60)), 2 * static_cast<int>(r.below(30)));
    e.directory_index = static_cast<uint8_t>(r.below(4));
    e.count = 1 + r.below(40);
    e.file_size = 200 + r.below(500000);

    switch (r.below(10)) {
    case 0:  // a visited-page record: no cached file
        e.url = std::string("Visited: ") + user + "@https://" + host + path;
        e.directory_index = 0xFF;
        e.data = std::string("\x60\0\0\0~U:", 7) + user;
        e.data.push_back('\0');
        break;
    case 1:  // deleted
        e.signature = "LEAK";
        e.url = std::string("http://") + host + path;
        e.file_name = "item" + std::to_string(number) + "[1]." + kind;
        e.second_date = e.last_sync_date;
        e.second_time = e.last_sync_time;
        e.data = "HTTP/1.1 200 OK\r\n\r\n~U:" + std::string(user) + "\r\n";
        break;
    default: {
        e.url = std::string(r.below(2) ? "https://" : "http://") + host + path;
        e.file_name = "item" + std::to_string(number) + "[" + std::to_string(1 + r.below(3)) + "]." + kind;
        std::string header = "HTTP/1.1 200 OK\r\nContent-Type: " + std::string(r.pick(types)) +
                             "\r\nContent-Length: " + std::to_string(e.file_size) + "\r\n";
        for (uint32_t extra = 3 + r.below(9); extra > 0; --extra) {
            header += "X-Cache-Field-" + std::to_string(extra) + ": " + std::to_string(r.next()) + "\r\n";
        }
        e.data = header + "\r\n~U:" + user + "\r\n";
        break;
    }
    }
    return e;
}

// Entries from `offset` up to `limit` (and no more than `most`), a REDR now and then; answers the
// number written.
uint32_t write_entries(byte_image& image, size_t& offset, size_t limit, rng& r, uint32_t first_number,
                       uint32_t most = UINT32_MAX) {
    uint32_t written = 0;
    while (written < most) {
        byte_image entry;
        size_t length;
        if (r.below(25) == 0) {
            length = write_redr_entry(entry, 0, "http://redirect.example.com/r?id=" + std::to_string(r.next() % 1000000));
        } else {
            length = write_url_entry(entry, 0, plausible_entry(r, first_number + written));
        }
        if (offset + length > limit) break;
        image.text(offset, entry.bytes().substr(0, length));
        offset += length;
        ++written;
    }
    return written;
}

// A container of at most `size` bytes: header with four directories, then entries (no more than `most`).
byte_image make_container(size_t size, rng& r, uint32_t& rows, uint32_t most = UINT32_MAX) {
    byte_image image;
    write_container_header(image, {"Q7X2M4LA", "B9TC0RW1", "KD3V8NEP", "Z0HF5UYS"});
    image.u32(28, static_cast<uint32_t>(size));
    size_t offset = 0x4000;  // entries begin behind the header's allocation bitmap, as in a real file
    image.resize(offset);
    rows = write_entries(image, offset, size, r, 1, most);
    image.resize(most == UINT32_MAX ? offset : size);
    return image;
}

// Random bytes may hold a signature on the 128-byte grid: break every one, so the row count is known.
void scrub_signatures(std::string& bytes) {
    for (size_t p = 0; p + 4 <= bytes.size(); p += 128) {
        if (std::memcmp(&bytes[p], "URL ", 4) == 0 || std::memcmp(&bytes[p], "LEAK", 4) == 0 ||
            std::memcmp(&bytes[p], "REDR", 4) == 0) {
            bytes[p] = 'x';
        }
    }
}

int write_bench(const std::string& dir) {
    if (!make_dir(dir)) return 1;
    rng r(0x5EED0001);
    std::string manifest;

    uint32_t dense_rows = 0;
    byte_image dense = make_container(dense_limit, r, dense_rows);
    if (!save(dir + "/dense.dat", dense.bytes())) return 1;
    manifest += "dense.dat " + std::to_string(dense_rows) + "\n";
    std::printf("dense.dat: %zu bytes, %u entries\n", dense.size(), dense_rows);

    std::string carved(carved_size, '\0');
    for (size_t p = 0; p < carved.size(); p += 8) {
        uint64_t v = r.next();
        std::memcpy(&carved[p], &v, 8);
    }
    scrub_signatures(carved);
    // Containers of 64 KiB to 512 KiB at 4 KiB-aligned offsets, one in each 4 MiB stretch, so that
    // some lie across the big-file road's chunk boundaries.
    uint32_t carved_rows = 0, containers = 0;
    for (uint64_t stretch = 0; stretch + 4 * MiB <= carved_size; stretch += 4 * MiB) {
        size_t size = 64 * 1024 + r.below(8) * 64 * 1024;
        size_t at = stretch + uint64_t{r.below(static_cast<uint32_t>((4 * MiB - size) / 4096))} * 4096;
        uint32_t rows = 0;
        byte_image container = make_container(size, r, rows);
        carved.replace(at, container.size(), container.bytes());
        carved_rows += rows;
        ++containers;
    }
    if (!save(dir + "/carved.img", carved)) return 1;
    manifest += "carved.img " + std::to_string(carved_rows) + "\n";
    std::printf("carved.img: %zu bytes, %u containers, %u entries\n", carved.size(), containers, carved_rows);

    {
        sparse_vmdk disk(vmdk_capacity, vmdk_grain_sectors, vmdk_entries_per_table);
        disk.cid("5eed0001");
        disk.write(0, carved);
        carved.clear();
        carved.shrink_to_fit();
        if (!disk.save(dir + "/carved.vmdk")) return 1;
    }
    manifest += "carved.vmdk " + std::to_string(carved_rows) + "\n";
    std::printf("carved.vmdk: 1 GiB virtual disk holding carved.img at its start\n");

    // A browser cache as a profile holds it: 48 KiB, some 35 entries; many copies for the list road.
    uint32_t small_rows = 0;
    const byte_image small = make_container(48 * 1024, r, small_rows, 35);
    std::string list;
    if (!make_dir(dir + "/many")) return 1;
    for (int i = 0; i < many_copies; ++i) {
        const std::string folder = dir + "/many/" + std::to_string(i / 100);
        if (i % 100 == 0 && !make_dir(folder)) return 1;
        const std::string path = folder + "/" + std::to_string(i) + ".dat";
        if (!save(path, small.bytes())) return 1;
        list += path + "\n";
    }
    if (!save(dir + "/many.list", list)) return 1;
    manifest += "many.list " + std::to_string(uint64_t{small_rows} * many_copies) + "\n";
    std::printf("many/: %d copies of a %zu-byte container of %u entries, listed in many.list\n", many_copies,
                small.size(), small_rows);
    return save(dir + "/inputs.txt", manifest) ? 0 : 1;
}

// ---- seeds ----

struct seed_writer {
    std::string dir;
    int count = 0;
    bool ok = true;
    void add(const std::string& name, const std::string& bytes) {
        ok = save(dir + "/" + name, bytes) && ok;
        ++count;
    }
};

std::string words(const std::vector<std::string>& list) {
    std::string out;
    for (size_t i = 0; i < list.size(); ++i) {
        if (i) out.push_back('\0');
        out += list[i];
    }
    return out;
}

void scan_seeds(seed_writer& w) {
    rng r(0x5EED0002);
    uint32_t rows = 0;
    byte_image small = make_container(0x6000, r, rows);
    w.add("container", small.bytes());
    w.add("entries_only", small.bytes().substr(0x4000 - 128));

    url_entry e = plausible_entry(r, 1);
    byte_image cut;
    size_t length = write_url_entry(cut, 128, e);
    w.add("entry_cut_in_data", cut.bytes().substr(0, 128 + length - 40));
    w.add("entry_cut_in_fixed_part", cut.bytes().substr(0, 128 + 100));

    byte_image far;
    url_entry wild = e;
    wild.url_offset = 0xFFFFFF80u;
    wild.file_name_offset = 0xFFFFFFF0u;
    wild.data_offset = 0x7FFFFFFFu;
    wild.data_size = 0xFFFFFFF0u;
    write_url_entry(far, 128, wild);
    wild.blocks = 0xFFFFFFFFu;
    wild.url_offset = url_entry::automatic;
    write_url_entry(far, 1024, wild);
    w.add("offsets_near_4gib", far.bytes());

    byte_image user_first;
    url_entry u = e;
    u.data = std::string("~U:mallory\0", 11);
    write_url_entry(user_first, 128, u);
    write_redr_entry(user_first, user_first.size(), "http://a,b.example/");
    u.signature = "LEAK";
    write_url_entry(user_first, user_first.size(), u);
    w.add("user_mark_first_redr_leak", user_first.bytes());

    std::string grid(4096, '\0');
    for (size_t p = 0; p < grid.size(); p += 128) grid.replace(p, 4, p % 384 == 0 ? "URL " : p % 384 == 128 ? "LEAK" : "REDR");
    w.add("signature_every_block", grid);
}

void container_seeds(seed_writer& w) {
    rng r(0x5EED0003);
    byte_image image(0x6000);
    write_container_header(image, {"Q7X2M4LA", "B9TC0RW1"}, 0x1000);
    std::vector<std::pair<uint32_t, uint32_t>> slots;
    size_t offset = 0x2000;
    for (uint32_t i = 0; i < 6; ++i) {
        size_t at = offset;
        offset += (i == 3) ? write_redr_entry(image, at, "http://example.com/next")
                           : write_url_entry(image, at, plausible_entry(r, i));
        if (i != 4) slots.push_back({0x100 + i, static_cast<uint32_t>(at)});  // entry 4 lies in a gap
    }
    write_hash_block(image, 0x1000, {slots.begin(), slots.begin() + 3}, 0x1800);
    write_hash_block(image, 0x1800, {slots.begin() + 3, slots.end()}, 0);
    w.add("two_hash_blocks", image.bytes().substr(0, offset));

    byte_image looped(0x2000);
    write_container_header(looped, {"AAAAAAAA"}, 0x800);
    write_hash_block(looped, 0x800, {{1, 0x1000}}, 0x800);  // a chain that points at itself
    write_url_entry(looped, 0x1000, plausible_entry(r, 9));
    w.add("hash_chain_loop", looped.bytes());

    byte_image wide(0x400);
    write_container_header(wide, {"A", "B", "C"});
    wide.u32(idx::header_directory_count, 0x15555556u);  // x 12 wraps in 32 bits
    w.add("directory_count_wraps", wide.bytes());
}

void vmdk_seeds(seed_writer& w) {
    byte_image mbr = partition_table({{7, 1, 100}, {5, 120, 200}});
    byte_image ntfs = ntfs_boot_sector("NTFS    ", 512, 8, 99, 0x1234);

    sparse_vmdk base(64 * 1024);
    base.write(0, mbr.bytes()).write(512, ntfs.bytes()).write(40000, "URL ");
    w.add("base", base.image().bytes());

    sparse_vmdk child(64 * 1024);
    child.cid("abcdef01").parent_cid("12345678").parent_hint("\"base.vmdk\"").write(4096, "REDR");
    w.add("child_with_hint", child.image().bytes());

    sparse_vmdk big_grains(1024 * 1024, 16, 4);
    big_grains.write(0, std::string(600, 'Z')).write(70000, "LEAK");
    w.add("big_grains", big_grains.image().bytes());

    sparse_vmdk missing(64 * 1024);
    missing.table_count(2).directory_entry(1, 0x7FFFFF).write(0, "A");
    w.add("table_past_end", missing.image().bytes());

    std::string truncated = base.image().bytes();
    w.add("header_only", truncated.substr(0, 512));
    w.add("cut_in_tables", truncated.substr(0, 512 * 3 + 100));

    sparse_vmdk streamed(64 * 1024, 16, 4);
    streamed.stream().write(0, mbr.bytes()).write(20000, "URL ").write(64 * 1024 - 8, "REDR");
    w.add("stream", streamed.image().bytes());
    child.stream();
    w.add("stream_child_with_hint", child.image().bytes());
}

void disk_start_seeds(seed_writer& w) {
    byte_image chain = partition_table({{7, 1, 4}, {12, 5, 4}, {15, 12, 20}});
    put_bytes(chain, 512, ntfs_boot_sector("NTFS    ", 512, 8, 4, 0x1234));
    put_bytes(chain, 5 * 512, fat_boot_sector(true, 512, 4, 4, 0x77));
    put_bytes(chain, 12 * 512, partition_table({{131, 1, 4}, {5, 8, 4}}));
    put_bytes(chain, 13 * 512, ext_volume_start(2, 500, "root", "/mnt/x"));
    put_bytes(chain, 20 * 512, partition_table({{11, 1, 2}}));
    w.add("mbr_extended_chain", chain.bytes());
    w.add("bare_ntfs", ntfs_boot_sector("NTFS    ", 512, 8, 99, 1).bytes());
    w.add("exfat", exfat_boot_sector(9, 3, 1000, 2).bytes());
    w.add("fat16", fat_boot_sector(false, 512, 4, 5000, 3).bytes());
    byte_image hfs(512);
    put_bytes(hfs, 512, hfs_volume_start(true));
    w.add("hfs_behind_zeros", hfs.bytes());
    byte_image table_further = partition_table({{7, 2, 100}}, false);
    put_bytes(table_further, 4096 - 512, partition_table({{7, 2, 100}}));
    put_bytes(table_further, 2 * 4096, ntfs_boot_sector("-FVE-FS-", 4096, 1, 99, 4));
    w.add("sector_4096_table", table_further.bytes());
}

void options_seeds(seed_writer& w) {
    w.add("csv_formats", words({"-csv", "-dateformat", "mm/dd/yyyy", "-timeformat", "hh:mm:ss.xxxxxx", "-f", "x"}));
    w.add("separators", words({"-csv_separator", " | ", "-enable_quoted_csv_fields", "-no_whitespace", "-bodyfile"}));
    w.add("aliases", words({"-alias", "a|%HOME%/b|c|d", "-aliaspath", "x|\"y\"/", "-filter_sig", "55 52 4C 20|0x80"}));
    w.add("filters", words({"-filter_skip", "*.tmp|*.log", "-filter_path", "/c/users", "-filter", "index.dat",
                            "-filter_path", "x", "-num_subdirs", "0x10"}));
    w.add("time_bounds", words({"-cmd_start_time", "2012-05-30 10:15:30.250", "-cmd_stop_time", "2012/05/31 1:05 pm"}));
    w.add("numbers", words({"-threads", "-0x7fffffff", "-cpu", "o777", "-cpuinst", "'a'", "-fragment_files",
                            "99999999999999999999999"}));
    w.add("refusals", words({"-alias", "odd", "-sqlite", "db", "-enumdir", "%NOPE%/x", "-pipe", "-quiet", "-v"}));
    w.add("formats", words({"-xml", "-multiline", "-csvgen", "-csvl2t", "-pair_datetime", "-base16", "-gzip",
                            "-zlibex", "9", "-signal", "1", "-hostname", "h", "-username", "u", "-profile"}));
}

std::string le64_bytes(uint64_t v) {
    std::string out(8, '\0');
    for (int i = 0; i < 8; ++i) out[i] = static_cast<char>(v >> (8 * i));
    return out;
}

// Layout read by the date fuzzer: u64 raw value, one byte of kind, then NUL-separated texts:
// date, time, order, separator, date template, time template.
void date_text_seeds(seed_writer& w) {
    const uint64_t moment = 130703799091234567ull;  // 2015-03-09 13:05:09.1234567 UTC
    auto seed = [&](const std::string& name, uint64_t raw, uint8_t kind, const std::vector<std::string>& texts) {
        w.add(name, le64_bytes(raw) + std::string(1, static_cast<char>(kind)) + words(texts));
    };
    seed("defaults", moment, 0, {"2015-03-09", "13:05:09.123", "YMD", "-", "yyyy-mm-dd", "hh:mm:ss.xxx"});
    seed("month_name", moment, 0, {"09-Mar-15", "1:05 pm", "DMonY", "-", "mmm dd, yy", "hh:mm:ss.xxxxxxxxx"});
    seed("slashes", moment, 1, {"2015/3/9", "12:30 am", "YMD", "/", "dd/yy/mm", "ss:mm:hh"});
    seed("odd_forms", 0, 2, {"0x7DF--o3-'\x09'", "59.9996:10:", "MDY", "-", "mm.dd.yyyy", "hh:mm:ss.xxxxxxxxxxxx"});
    seed("far_future", 0xFFFFFFFFFFFFFFFFull, 3, {"2015-00-00", "99:99:99", "Mon", "-", "abcdefgh", "x"});
}

// Sets of segment files, cut apart by the ewf target at "EWFNEXT": a 64 KiB disk holding a container,
// acquired by ewfacquire with and without compression in chunks of 16 sectors, and forms of damage.
void ewf_seeds(seed_writer& w) {
    if (std::system("command -v ewfacquire > /dev/null 2>&1") != 0) {
        std::printf("ewf: ewfacquire not installed (Debian package ewf-tools): no seeds\n");
        return;
    }
    char folder[] = "/tmp/ravel-ewf-seeds-XXXXXX";
    if (mkdtemp(folder) == nullptr) return;
    const std::string dir = folder;
    rng r(0x5EED0007);
    uint32_t rows = 0;
    byte_image disk(0x10000);
    disk.text(0x4000, make_container(0x8000, r, rows).bytes());
    w.ok = save(dir + "/disk.raw", disk.bytes()) && w.ok;
    auto acquire = [&](const std::string& compression) -> std::string {
        const std::string target = dir + "/" + compression;
        const std::string command = "ewfacquire -u -q -b 16 -c " + compression + " -t " + target + " " + dir +
                                    "/disk.raw > /dev/null 2>&1";
        if (std::system(command.c_str()) != 0) return "";
        std::ifstream in(target + ".E01", std::ios::binary);
        std::ostringstream bytes;
        bytes << in.rdbuf();
        return bytes.str();
    };
    const std::string fast = acquire("fast"), none = acquire("none");
    if (fast.empty() || none.empty()) {
        w.ok = false;
        std::fprintf(stderr, "make_bench_inputs: ewfacquire failed\n");
    } else {
        w.add("fast", fast);
        w.add("none", none);
        w.add("fast_cut", fast.substr(0, fast.size() * 3 / 5));
        std::string flipped = fast;
        flipped[flipped.size() / 2] = static_cast<char>(flipped[flipped.size() / 2] ^ 0x40);
        w.add("fast_flipped", flipped);
        w.add("two_first_segments", fast + "EWFNEXT" + none);
    }
    for (const char* name : {"disk.raw", "fast.E01", "none.E01"}) std::remove((dir + "/" + name).c_str());
    rmdir(folder);
}

// Raw images for the image target: a 1 MiB FAT volume made by mkfs.fat holding a container in a folder,
// with it deleted, and behind an MBR.
void image_seeds(seed_writer& w) {
    if (std::system("command -v mkfs.fat > /dev/null 2>&1 && command -v mcopy > /dev/null 2>&1") != 0) {
        std::printf("image: mkfs.fat or mcopy not installed (Debian packages dosfstools, mtools): no seeds\n");
        return;
    }
    char folder[] = "/tmp/ravel-image-seeds-XXXXXX";
    if (mkdtemp(folder) == nullptr) return;
    const std::string dir = folder;
    rng r(0x5EED0008);
    uint32_t rows = 0;
    w.ok = save(dir + "/index.dat", make_container(0x8000, r, rows).bytes()) && w.ok;
    auto read_back = [](const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream bytes;
        bytes << in.rdbuf();
        return bytes.str();
    };
    const std::string make = "cd " + dir + " && export MTOOLS_SKIP_CHECK=1 && mkfs.fat -C -s 1 fat.img 1024 && "
                             "mmd -i fat.img ::/History && mcopy -i fat.img index.dat ::/History/index.dat";
    if (std::system((make + " > /dev/null 2>&1").c_str()) != 0) {
        w.ok = false;
        std::fprintf(stderr, "make_bench_inputs: mkfs.fat failed\n");
    } else {
        const std::string live = read_back(dir + "/fat.img");
        w.add("fat_live", live);
        if (std::system(("cd " + dir + " && MTOOLS_SKIP_CHECK=1 mdel -i fat.img ::/History/index.dat > /dev/null 2>&1").c_str()) != 0)
            w.ok = false;
        w.add("fat_deleted", read_back(dir + "/fat.img"));
        // An MBR of one FAT partition at sector 1, the volume behind it.
        std::string mbr(512, '\0');
        const uint32_t sectors = static_cast<uint32_t>(live.size() / 512);
        const unsigned char entry[16] = {0, 0, 0, 0, 0x0c, 0, 0, 0, 1, 0, 0, 0,
                                         static_cast<unsigned char>(sectors), static_cast<unsigned char>(sectors >> 8),
                                         static_cast<unsigned char>(sectors >> 16), 0};
        mbr.replace(446, 16, reinterpret_cast<const char*>(entry), 16);
        mbr[510] = '\x55';
        mbr[511] = '\xaa';
        w.add("mbr_fat", mbr + live);
    }
    for (const char* name : {"index.dat", "fat.img"}) std::remove((dir + "/" + name).c_str());
    rmdir(folder);
}

int write_seeds(const std::string& dir) {
    if (!make_dir(dir)) return 1;
    struct target {
        const char* name;
        void (*fill)(seed_writer&);
    };
    const target targets[] = {{"scan", scan_seeds},           {"container", container_seeds},
                              {"vmdk", vmdk_seeds},           {"disk_start", disk_start_seeds},
                              {"options", options_seeds},     {"date_text", date_text_seeds},
                              {"ewf", ewf_seeds},             {"image", image_seeds}};
    bool ok = true;
    for (const target& t : targets) {
        seed_writer w{dir + "/" + t.name};
        if (!make_dir(w.dir)) return 1;
        t.fill(w);
        ok = ok && w.ok;
        std::printf("%s: %d seeds\n", t.name, w.count);
    }
    return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "bench") == 0) return write_bench(argv[2]);
    if (argc == 3 && std::strcmp(argv[1], "seeds") == 0) return write_seeds(argv[2]);
    std::fprintf(stderr, "usage: make_bench_inputs bench OUT_DIR | seeds CORPUS_DIR\n");
    return 2;
}
