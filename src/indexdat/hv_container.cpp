#include "indexdat/hv_container.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace {

constexpr char container_signature[] = "Client UrlCache";
static_assert(sizeof(container_signature) - 1 == INDEX_DAT_RECORD::signature_size, "signature length");

// range_is_inside on a distance, so that callers never form a pointer past the buffer.
uint64_t inside_at(uint64_t distance, uint64_t length, uint64_t total) {
    if (total == 0 || length > total) return 0;
    if (distance >= total - length) return 0;
    return distance;
}

// The steps that the directory table and the hash walk share: header test, then the names.
bool read_header_and_names(INDEX_DAT_RECORD& record, const uint8_t* buffer, uint32_t size) {
    using R = INDEX_DAT_RECORD;
    record.clear();
    if (!read_container_header(record, buffer, size)) return false;
    uint32_t n = hv::le32(buffer, size, R::at_directory_count);
    if (n == 0) return true;
    // The 32-bit product is the bound as it stands; the second test keeps a
    // wrapped product from sending the name reads past the buffer.
    uint32_t table_bytes = n * R::directory_item_size;
    if (!inside_at(R::at_first_directory_name, table_bytes, size)) return false;
    if (!hv::fits(size, R::at_first_directory_name, uint64_t(n) * R::directory_item_size)) return false;
    record.directory_names.reserve(n);
    for (uint32_t i = 0; i < n; ++i) {
        const uint8_t* name = buffer + R::at_first_directory_name + uint64_t(i) * R::directory_item_size;
        record.directory_names.emplace_back(reinterpret_cast<const char*>(name), R::directory_name_size);
    }
    return true;
}

}  // namespace

uint64_t range_is_inside(const void* base, const void* pointer, uint64_t length, uint64_t total) {
    if (!base || !pointer) return 0;
    auto b = reinterpret_cast<uintptr_t>(base);
    auto p = reinterpret_cast<uintptr_t>(pointer);
    if (p < b) return 0;
    return inside_at(p - b, length, total);
}

void HASH_TABLE_RECORD::clear() {
    std::memset(bytes, 0, size);
    valid = false;
    pairs.clear();
}

void INDEX_DAT_RECORD::clear() {
    std::memset(header, 0, header_size);
    directory_names.clear();
    hash_tables.clear();
    valid = false;
    chain_read_whole = false;
}

int read_container_header(INDEX_DAT_RECORD& record, const uint8_t* buffer, uint32_t size) {
    if (!buffer || size < INDEX_DAT_RECORD::header_size) return 0;
    // Copied before the test: a failed test leaves the file's bytes in the record.
    std::memcpy(record.header, buffer, INDEX_DAT_RECORD::header_size);
    if (std::memcmp(record.header + INDEX_DAT_RECORD::at_signature, container_signature,
                    INDEX_DAT_RECORD::signature_size) != 0)
        return 0;
    record.valid = true;
    return 1;
}

int read_directory_table(INDEX_DAT_RECORD& record, const uint8_t* buffer, uint32_t size) {
    if (!read_header_and_names(record, buffer, size)) return 0;
    record.valid = true;
    return 1;
}

const std::string* directory_name_of(const INDEX_DAT_RECORD& record, uint8_t index) {
    const int64_t names = static_cast<int64_t>(record.directory_names.size());
    return static_cast<int64_t>(index) < names ? &record.directory_names[index] : nullptr;
}

int read_hash_block(HASH_TABLE_RECORD& record, const uint8_t* buffer, uint64_t block_offset, uint32_t size) {
    record.clear();
    if (!buffer || block_offset + HASH_TABLE_RECORD::size > size) return 0;
    if (hv::le32(buffer, size, block_offset + HASH_TABLE_RECORD::at_signature) != signature_hash) return 0;
    std::memcpy(record.bytes, buffer + block_offset, HASH_TABLE_RECORD::size);
    if (uint64_t(record.block_count()) * entry_block_size > size) return 0;
    uint64_t slot = block_offset + HASH_TABLE_RECORD::at_slots;
    if (!inside_at(slot, FLAG_OFFSET_PAIR::size, size)) return 0;
    // Slots run until the end mark or the buffer's end; the block's own size doesn't bound them.
    for (;;) {
        FLAG_OFFSET_PAIR pair;
        pair.flag = hv::le32(buffer, size, slot + FLAG_OFFSET_PAIR::at_flag);
        pair.offset = hv::le32(buffer, size, slot + FLAG_OFFSET_PAIR::at_offset);
        if (pair.flag == unset_u32) break;
        if (pair.offset < size) {
            uint32_t signature = hv::le32(buffer, size, pair.offset);
            if (signature == signature_url || signature == signature_leak || signature == signature_redr)
                record.pairs.push_back(pair);
        }
        slot += FLAG_OFFSET_PAIR::size;
        if (!inside_at(slot, FLAG_OFFSET_PAIR::size, size)) break;
    }
    record.valid = true;
    return 1;
}

bool INDEX_DAT_RECORD::walk_hash_tables(const uint8_t* buffer, uint32_t size) {
    chain_read_whole = false;
    if (!read_header_and_names(*this, buffer, size)) return false;

    uint64_t at = hv::le32(buffer, size, at_first_hash);
    if (at != 0 && size > at + HASH_TABLE_RECORD::size) {
        // A chain that points back into itself would never end: each block is read once.
        std::set<uint64_t> seen;
        while (at != 0 && at < size && seen.insert(at).second) {
            if (!inside_at(at, URL_HEADER::size, size)) break;
            HASH_TABLE_RECORD block;
            if (!read_hash_block(block, buffer, at, size)) break;
            at = block.next_offset();
            hash_tables.push_back(std::move(block));
            chain_read_whole = at == 0;
        }
    }
    return valid;
}

// ---- the lossless report's questions -----------------------------------------------------------

void container_facts::clear() {
    record.clear();
    known = false;
    declared_size = 0;
    block_count = 0;
    bitmap.clear();
    listed.clear();
}

bool container_facts::head_answers_all(const uint8_t* buffer, size_t size, uint64_t container_size) {
    using R = INDEX_DAT_RECORD;
    if (size >= container_size) return true;
    const uint64_t names_end = R::at_first_directory_name + uint64_t{R::directory_item_size} * hv::le32(buffer, size, R::at_directory_count);
    const uint64_t bitmap_end = at_bitmap + (uint64_t{hv::le32(buffer, size, at_block_count)} + 7) / 8;
    // The names' bound is tested against the container's size: a table that ends in these bytes passes
    // it in both, one that reaches past them might not.
    return hv::le32(buffer, size, R::at_first_hash) == 0 && names_end < size && bitmap_end <= size;
}

bool container_facts::read(const uint8_t* buffer, uint32_t size) {
    clear();
    known = read_container_header(record, buffer, size) != 0;
    if (!known) return false;
    declared_size = hv::le32(buffer, size, at_declared_size);
    block_count = hv::le32(buffer, size, at_block_count);
    const uint64_t bitmap_bytes = (uint64_t{block_count} + 7) / 8;
    if (size > at_bitmap)
        bitmap.assign(buffer + at_bitmap, buffer + at_bitmap + std::min<uint64_t>(bitmap_bytes, size - at_bitmap));
    // The walk reads the directory names too; it leaves them empty when their table is out of bounds.
    record.walk_hash_tables(buffer, size);
    for (const HASH_TABLE_RECORD& block : record.hash_tables)
        for (const FLAG_OFFSET_PAIR& pair : block.pairs) listed.push_back(pair.offset);
    std::sort(listed.begin(), listed.end());
    record.hash_tables.clear();
    return true;
}

int container_facts::allocated(uint64_t offset) const {
    if (!known || offset < first_block) return -1;
    const uint64_t block = (offset - first_block) / entry_block_size;
    if (block >= block_count || block / 8 >= bitmap.size()) return -1;
    return (bitmap[block / 8] >> (block % 8)) & 1;
}

int container_facts::hash_listed(uint64_t offset) const {
    if (!known) return -1;
    if (std::binary_search(listed.begin(), listed.end(), offset)) return 1;
    return record.chain_read_whole ? 0 : -1;
}
