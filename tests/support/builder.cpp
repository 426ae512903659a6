#include "support/builder.h"

#include <algorithm>

namespace testsupport {

byte_image& byte_image::put(size_t offset, uint64_t v, size_t width) {
    if (bytes_.size() < offset + width) bytes_.resize(offset + width, '\0');
    for (size_t i = 0; i < width; ++i) bytes_[offset + i] = static_cast<char>(v >> (8 * i));
    return *this;
}

byte_image& byte_image::text(size_t offset, const std::string& s) {
    if (bytes_.size() < offset + s.size()) bytes_.resize(offset + s.size(), '\0');
    bytes_.replace(offset, s.size(), s);
    return *this;
}

namespace {
uint32_t pick(uint32_t given, uint32_t computed) { return given == url_entry::automatic ? computed : given; }
size_t round_up(size_t n, size_t to) { return (n + to - 1) / to * to; }
}  // namespace

size_t write_url_entry(byte_image& image, size_t offset, const url_entry& e) {
    // Texts behind the fixed part, each on an 8-byte boundary as the browser lays them out.
    size_t at = idx::url_fixed_part;
    auto place = [&](const std::string& s) -> uint32_t {
        if (s.empty()) return 0;
        size_t where = at;
        image.text(offset + where, s).u8(offset + where + s.size(), 0);
        at = round_up(where + s.size() + 1, 8);
        return static_cast<uint32_t>(where);
    };
    uint32_t url_at = place(e.url);
    uint32_t name_at = place(e.file_name);
    size_t data_at = at;
    if (!e.data.empty()) {
        image.text(offset + data_at, e.data);
        at = data_at + e.data.size();
    }
    size_t end = round_up(std::max(at, size_t(idx::url_fixed_part)), idx::block);
    uint32_t blocks = pick(e.blocks, static_cast<uint32_t>(end / idx::block));
    image.resize(std::max(image.size(), offset + end));

    std::string sig = e.signature;
    sig.resize(4, ' ');
    image.text(offset, sig)
        .u32(offset + idx::block_count, blocks)
        .u64(offset + idx::last_modified, e.last_modified)
        .u64(offset + idx::last_access, e.last_access)
        .u16(offset + idx::expires, e.expires_date)
        .u16(offset + idx::expires + 2, e.expires_time)
        .u32(offset + idx::file_size, e.file_size)
        .u32(offset + idx::url_offset, pick(e.url_offset, url_at))
        .u8(offset + idx::directory_index, e.directory_index)
        .u32(offset + idx::file_name_offset, pick(e.file_name_offset, name_at))
        .u32(offset + idx::flags, e.flags)
        .u32(offset + idx::data_offset, pick(e.data_offset, e.data.empty() ? 0 : static_cast<uint32_t>(data_at)))
        .u32(offset + idx::data_size, pick(e.data_size, static_cast<uint32_t>(e.data.size())))
        .u16(offset + idx::last_sync, e.last_sync_date)
        .u16(offset + idx::last_sync + 2, e.last_sync_time)
        .u32(offset + idx::count, e.count)
        .u16(offset + idx::second_stamp, e.second_date)
        .u16(offset + idx::second_stamp + 2, e.second_time);
    return end;
}

size_t write_redr_entry(byte_image& image, size_t offset, const std::string& url, uint32_t blocks) {
    image.text(offset, "REDR").u32(offset + idx::block_count, blocks);
    image.text(offset + idx::redr_url, url).u8(offset + idx::redr_url + url.size(), 0);
    size_t length = round_up(idx::redr_url + url.size() + 1, idx::block);
    image.resize(std::max(image.size(), offset + length));
    return length;
}

void write_container_header(byte_image& image, const std::vector<std::string>& directories,
                            uint32_t first_hash_offset) {
    image.text(0, std::string("Client UrlCache MMF Ver 5.2") + '\0');
    image.u32(idx::header_first_hash, first_hash_offset);
    image.u32(idx::header_directory_count, static_cast<uint32_t>(directories.size()));
    for (size_t i = 0; i < directories.size(); ++i) {
        std::string name = directories[i];
        name.resize(8, '\0');
        size_t item = idx::header_directory_table + 12 * i;
        image.u32(item, static_cast<uint32_t>(i + 1)).text(item + 4, name);
    }
    image.resize(std::max(image.size(), round_up(idx::header_directory_table + 12 * directories.size(), idx::block)));
}

void write_hash_block(byte_image& image, size_t offset, const std::vector<std::pair<uint32_t, uint32_t>>& slots,
                      uint32_t next_offset, uint32_t blocks, bool terminate) {
    image.text(offset, "HASH").u32(offset + idx::block_count, blocks).u32(offset + idx::hash_next, next_offset);
    size_t at = offset + idx::hash_slots;
    for (const auto& slot : slots) {
        image.u32(at, slot.first).u32(at + 4, slot.second);
        at += 8;
    }
    if (terminate) image.u32(at, 0xDEADBEEFu).u32(at + 4, 0xDEADBEEFu);
    image.resize(std::max(image.size(), offset + size_t(blocks) * idx::block));
}

uint64_t filetime_of(int year, int month, int day, int hour, int minute, int second, int millis) {
    // Days from 1601-01-01 by the civil-from-days inverse; no C library zone is involved.
    int64_t y = year - (month <= 2);
    int64_t era = (y >= 0 ? y : y - 399) / 400;
    int64_t yoe = y - era * 400;
    int64_t doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    int64_t days_since_1970 = era * 146097 + doe - 719468;
    int64_t seconds = days_since_1970 * 86400 + hour * 3600 + minute * 60 + second;
    return static_cast<uint64_t>(seconds * 10000000 + int64_t(millis) * 10000 + 116444736000000000LL);
}

uint16_t dos_date_of(int year, int month, int day) {
    return static_cast<uint16_t>(((year - 1980) << 9) | (month << 5) | day);
}
uint16_t dos_time_of(int hour, int minute, int second) {
    return static_cast<uint16_t>((hour << 11) | (minute << 5) | (second / 2));
}

byte_image small_container(const std::string& site) {
    byte_image container(0x8000);
    write_container_header(container, {"0AB1CD2E"}, 0);
    url_entry entry;
    entry.file_name = "index[1].htm";
    entry.data = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n~U:carol\r\n";
    entry.last_modified = filetime_of(2013, 2, 1, 9, 30);
    const std::string kinds[] = {"URL /page0", "URL /page1", "LEAK/leaked"};
    for (size_t i = 0; i < 3; ++i) {
        entry.signature = kinds[i].substr(0, 4);
        entry.url = "http://" + site + kinds[i].substr(4);
        write_url_entry(container, 0x5000 + 0x400 * i, entry);
    }
    write_redr_entry(container, 0x6400, "http://" + site + "/moved");
    return container;
}

}  // namespace testsupport
