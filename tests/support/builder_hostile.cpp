#include "support/builder_hostile.h"

#include <algorithm>
#include <vector>

namespace testsupport {

namespace {

// A small generator of our own, so that a seed means the same bytes on every platform.
class seeded {
public:
    explicit seeded(uint32_t seed) : state_(seed * 2654435761u + 1) {}
    uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    uint32_t below(uint32_t n) { return n == 0 ? 0 : next() % n; }
    bool one_in(uint32_t n) { return below(n) == 0; }

private:
    uint32_t state_;
};

uint32_t hostile_value(seeded& pick, uint32_t entry_size, size_t input_size) {
    switch (pick.below(7)) {
        case 0: return 0;
        case 1: return 0xDEADBEEFu;
        case 2: return 0xFFFFFFFFu;
        case 3: return entry_size;
        case 4: return static_cast<uint32_t>(input_size);
        case 5: return pick.below(entry_size + 256);
        default: return pick.below(2 * 1280);
    }
}

bool signature_at(const std::string& bytes, size_t at) {
    if (at + 4 > bytes.size()) return false;
    const std::string word = bytes.substr(at, 4);
    return word == "URL " || word == "LEAK" || word == "REDR";
}

// Sets hostile values in the fields of the entries on the grid, drops text ends, and may cut the input.
void mutate(byte_image& image, seeded& pick) {
    std::vector<size_t> entries;
    for (size_t at = 0; at + 4 <= image.size(); at += idx::block)
        if (signature_at(image.bytes(), at)) entries.push_back(at);
    const size_t changes = entries.empty() ? 0 : 1 + pick.below(6);
    for (size_t i = 0; i < changes; ++i) {
        const size_t entry = entries[pick.below(static_cast<uint32_t>(entries.size()))];
        const uint32_t blocks = image.bytes()[entry + 4] & 0x0F;
        const uint32_t entry_size = std::max<uint32_t>(blocks, 1) * idx::block;
        if (pick.one_in(5)) {
            // A text without its end: the NULs of the entry's texts become 'x'.
            for (size_t at = entry + idx::url_fixed_part; at < std::min(image.size(), entry + entry_size); ++at)
                if (image.bytes()[at] == '\0' && pick.one_in(2)) image.bytes()[at] = 'x';
            continue;
        }
        if (pick.one_in(8)) {
            image.text(entry, pick.one_in(2) ? "LEAK" : "URL ");
            continue;
        }
        const size_t field = 4 * (1 + pick.below(25));  // every 32-bit field of the fixed part after the signature
        image.u32(entry + field, hostile_value(pick, entry_size, image.size()));
    }
    if (pick.one_in(4) && image.size() > idx::block) {
        const size_t cut = idx::block + pick.below(static_cast<uint32_t>(image.size() - idx::block));
        image.resize(pick.one_in(2) ? cut / idx::block * idx::block + pick.below(112) : cut);
    }
}

}  // namespace

byte_image hostile_container(uint32_t seed) {
    seeded pick(seed);
    byte_image image;
    write_container_header(image, {"AAAA1111", "BBBB2222", "CCCC3333"}, 0);
    image.resize(0x5000);
    size_t at = 0x5000;
    const uint32_t count = 1 + pick.below(8);
    for (uint32_t i = 0; i < count; ++i) {
        if (pick.one_in(5)) {
            at += write_redr_entry(image, at, "http://moved.example/" + std::to_string(i));
            continue;
        }
        url_entry e;
        e.signature = pick.one_in(3) ? "LEAK" : "URL ";
        e.url = pick.one_in(6) ? "" : "http://site" + std::to_string(i) + ".example/p?q=" + std::to_string(seed);
        e.file_name = pick.one_in(4) ? "" : "file" + std::to_string(i) + "[1].htm";
        e.data = pick.one_in(4) ? "" : "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n~U:user" + std::to_string(i) + "\r\n";
        e.last_modified = filetime_of(2012, 3, 1 + i, 10, 0, 0);
        e.last_access = pick.one_in(4) ? 0xDEADBEEFDEADBEEFull : filetime_of(2012, 3, 17, 0, 24, 36);
        e.expires_date = dos_date_of(2012, 4, 1);
        e.second_date = dos_date_of(2012, 3, 17);
        e.second_time = dos_time_of(0, 24, 36);
        e.file_size = 1966;
        e.directory_index = static_cast<uint8_t>(pick.below(4));
        e.count = pick.below(5);
        at += write_url_entry(image, at, e);
        at += idx::block * pick.below(2);
    }
    mutate(image, pick);
    return image;
}

byte_image hostile_mutant(const std::string& base, uint32_t seed) {
    seeded pick(seed);
    byte_image image;
    image.bytes() = base;
    mutate(image, pick);
    return image;
}

}  // namespace testsupport
