// Writes test inputs byte by byte: little-endian fields at named offsets, and index.dat containers
// (header, directory table, HASH blocks, URL, LEAK and REDR entries) with any field value.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

// A growable byte image; writes past the end extend it with zeros.
class byte_image {
public:
    explicit byte_image(size_t size = 0) : bytes_(size, '\0') {}
    byte_image& u8(size_t offset, uint8_t v) { return put(offset, v, 1); }
    byte_image& u16(size_t offset, uint16_t v) { return put(offset, v, 2); }
    byte_image& u32(size_t offset, uint32_t v) { return put(offset, v, 4); }
    byte_image& u64(size_t offset, uint64_t v) { return put(offset, v, 8); }
    byte_image& text(size_t offset, const std::string& s);  // no terminator added
    size_t size() const { return bytes_.size(); }
    void resize(size_t n) { bytes_.resize(n, '\0'); }
    const std::string& bytes() const { return bytes_; }
    std::string& bytes() { return bytes_; }
    uint8_t* data() { return reinterpret_cast<uint8_t*>(&bytes_[0]); }

private:
    byte_image& put(size_t offset, uint64_t v, size_t width);
    std::string bytes_;
};

// Field offsets of the container, as the format lays them down.
namespace idx {
constexpr size_t header_first_hash = 32;
constexpr size_t header_directory_count = 72;
constexpr size_t header_directory_table = 76;  // 12-byte items: u32 file count, 8-byte name
constexpr size_t block = 128;
// URL and LEAK entries
constexpr size_t block_count = 4;
constexpr size_t last_modified = 8;
constexpr size_t last_access = 16;
constexpr size_t expires = 24;
constexpr size_t file_size = 32;
constexpr size_t url_offset = 52;
constexpr size_t directory_index = 56;
constexpr size_t file_name_offset = 60;
constexpr size_t flags = 64;
constexpr size_t data_offset = 68;
constexpr size_t data_size = 72;
constexpr size_t last_sync = 80;
constexpr size_t count = 84;
constexpr size_t second_stamp = 92;
constexpr size_t url_fixed_part = 104;
// REDR entries
constexpr size_t redr_url = 16;
// HASH blocks
constexpr size_t hash_next = 8;
constexpr size_t hash_slots = 16;
}  // namespace idx

// Field values of a "URL " or "LEAK" entry. Texts are laid out behind the fixed part in the order
// url, file name, data, each NUL-terminated; an offset or size left at `automatic` points at
// them (or is 0 for an empty text), any other value is written as it stands.
struct url_entry {
    static constexpr uint32_t automatic = 0xA07A07A0u;

    std::string signature = "URL ";
    uint32_t blocks = automatic;  // enough blocks for the texts
    uint64_t last_modified = 0;
    uint64_t last_access = 0;
    uint16_t expires_date = 0, expires_time = 0;
    uint32_t file_size = 0;
    uint8_t directory_index = 0;
    uint32_t flags = 0;
    uint16_t last_sync_date = 0, last_sync_time = 0;
    uint32_t count = 0;
    uint16_t second_date = 0, second_time = 0;  // a LEAK's access stamp
    std::string url;
    std::string file_name;
    std::string data;  // the stored HTTP response data, e.g. "HTTP/1.1 200 OK\r\n~U:bob\r\n"
    uint32_t url_offset = automatic;
    uint32_t file_name_offset = automatic;
    uint32_t data_offset = automatic;
    uint32_t data_size = automatic;
};

// Writes the entry at `offset`; answers the bytes it lays down, in whole blocks, whatever the
// block count field says.
size_t write_url_entry(byte_image& image, size_t offset, const url_entry& entry);

// A "REDR" entry: signature, block count, URL at 16 with its NUL; answers its bytes in whole blocks.
size_t write_redr_entry(byte_image& image, size_t offset, const std::string& url, uint32_t blocks = 1);

// 32 KiB holding a container: header (one directory), two URL entries, a LEAK and a REDR, their URLs
// on http://`site`/.
byte_image small_container(const std::string& site);

// "Client UrlCache MMF Ver 5.2", the first HASH offset and the directory table. Names are
// written as 8 bytes (cut or NUL-padded).
void write_container_header(byte_image& image, const std::vector<std::string>& directories,
                            uint32_t first_hash_offset = 0);

// A HASH block of `blocks` blocks whose slots are the (flag, offset) pairs, closed by a
// 0xDEADBEEF flag when `terminate` is set.
void write_hash_block(byte_image& image, size_t offset, const std::vector<std::pair<uint32_t, uint32_t>>& slots,
                      uint32_t next_offset = 0, uint32_t blocks = 1, bool terminate = true);

// FILETIME ticks of a UTC calendar moment (proleptic Gregorian), and the DOS words of one.
uint64_t filetime_of(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int millis = 0);
uint16_t dos_date_of(int year, int month, int day);
uint16_t dos_time_of(int hour, int minute, int second);

}  // namespace testsupport
