#include "webcache/hv_ese_long_values.h"

#include "foundation/hv_bytes.h"
#include "webcache/hv_ese_page.h"

namespace {

uint32_t be32(const std::string& key, size_t at) {
    return (static_cast<uint32_t>(static_cast<uint8_t>(key[at])) << 24) |
           (static_cast<uint32_t>(static_cast<uint8_t>(key[at + 1])) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(key[at + 2])) << 8) | static_cast<uint8_t>(key[at + 3]);
}

// Every tag's whole key (its common bytes from tag 0's value) and data, with its flags.
template <class Each>
void each_entry(const uint8_t* page, size_t page_size, Each each) {
    std::string prefix;
    size_t at = 0, size = 0;
    if (read_ese_tag_span(page, page_size, 0, at, size)) prefix.assign(reinterpret_cast<const char*>(page + at), size);
    const size_t count = hv::le16(page, page_size, ESE_PAGE_HEADER::at_tag_count);
    std::string key;
    for (size_t tag = 1; tag < count; ++tag) {
        ese_tag_value value;
        if (!read_ese_tag(page, page_size, tag, value) || value.common_key_size > prefix.size()) continue;
        key.assign(prefix, 0, value.common_key_size);
        key.append(reinterpret_cast<const char*>(page + value.key), value.key_size);
        each(value, key);
    }
}

}  // namespace

void ese_long_value_reader::read_catalog_page(const uint8_t* page, size_t page_size) {
    each_entry(page, page_size, [&](const ese_tag_value& value, const std::string&) {
        const uint8_t* data = page + value.data;
        if ((value.flags & ESE_PAGE_TAG::flag_deleted) || value.data_size < ESE_CATALOG_RECORD::size) return;
        if (hv::le16(data, value.data_size, ESE_CATALOG_RECORD::at_type) != ESE_CATALOG_RECORD::type_long_values) return;
        tables_[hv::le32(data, value.data_size, ESE_CATALOG_RECORD::at_id)] =
            hv::le32(data, value.data_size, ESE_CATALOG_RECORD::at_table);
    });
}

void ese_long_value_reader::read_long_value_page(const uint8_t* page, size_t page_size, uint32_t object) {
    each_entry(page, page_size, [&](const ese_tag_value& entry, const std::string& key) {
        const bool live = !(entry.flags & ESE_PAGE_TAG::flag_deleted);
        const uint8_t* data = page + entry.data;
        if (key.size() == ESE_LONG_VALUE::root_key_size) {
            if (entry.data_size < ESE_LONG_VALUE::at_size + 4) return;
            value& v = trees_[object][be32(key, 0)];
            if (v.have_size && !live) return;
            v.size = hv::le32(data, entry.data_size, ESE_LONG_VALUE::at_size);
            v.have_size = true;
        } else if (key.size() == ESE_LONG_VALUE::piece_key_size) {
            if (taken_ + entry.data_size > limit_) return;
            value& v = trees_[object][be32(key, 0)];
            const uint32_t offset = be32(key, 4);
            auto was = v.live.find(offset);
            if (was != v.live.end() && (was->second || !live)) return;
            v.pieces[offset].assign(reinterpret_cast<const char*>(data), entry.data_size);
            v.live[offset] = live;
            taken_ += entry.data_size;
        }
    });
}

void ese_long_value_reader::values_of_table(uint32_t table, ese_long_values& out) const {
    out.clear();
    for (const auto& tree : tables_) {
        if (tree.second != table) continue;
        auto values = trees_.find(tree.first);
        if (values == trees_.end()) continue;
        for (const auto& entry : values->second) {
            const value& v = entry.second;
            if (!v.have_size) continue;
            std::string joined;
            for (const auto& piece : v.pieces) {
                if (piece.first != joined.size() || joined.size() >= v.size) break;
                joined.append(piece.second, 0, v.size - joined.size());
            }
            if (joined.size() == v.size) out.emplace(entry.first, std::move(joined));
        }
    }
}
