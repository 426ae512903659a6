// What the page walk reads besides the records: the catalog's records naming each long-value tree's
// table, and the long values in the trees' leaf pages, joined from their pieces. Pure over (bytes, size).
#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "webcache/hv_ese_record.h"

// A catalog record (MSysObjects, object 2): the start of its fixed columns.
struct ESE_CATALOG_RECORD {
    static constexpr uint32_t catalog_object = 2;
    static constexpr size_t at_table = 4;   // i32 ObjidTable: the table the object belongs to
    static constexpr size_t at_type = 8;    // i16 Type: 1 table, 2 column, 3 index, 4 long-value tree
    static constexpr size_t at_id = 10;     // i32 Id: the object's own id
    static constexpr size_t size = 14;
    static constexpr uint16_t type_long_values = 4;
};

// A long-value tree's leaf entries: a value's root, keyed by its id (4 bytes, big-endian), holds its
// reference count and size; its pieces are keyed by the id and their offset (4 + 4 bytes, big-endian).
struct ESE_LONG_VALUE {
    static constexpr size_t root_key_size = 4, piece_key_size = 8;
    static constexpr size_t at_size = 4;  // u32 in a root's data
};

// The long values of each tree being read, piece by piece.
class ese_long_value_reader {
public:
    // Stops taking pieces past `byte_limit` bytes in all: a damaged file may hold any number.
    explicit ese_long_value_reader(size_t byte_limit) : limit_(byte_limit) {}
    // A leaf page of the catalog: its long-value trees' tables.
    void read_catalog_page(const uint8_t* page, size_t page_size);
    // A leaf page of a long-value tree, the object its header names.
    void read_long_value_page(const uint8_t* page, size_t page_size, uint32_t object);
    // The long values of the tree that belongs to `table`, each its pieces joined up to its size (a
    // missing piece ends it); empty when the catalog named no tree for it.
    void values_of_table(uint32_t table, ese_long_values& out) const;

private:
    struct value {
        uint32_t size = 0;
        bool have_size = false;
        std::map<uint32_t, std::string> pieces;  // by offset; a live piece replaces a deleted one
        std::map<uint32_t, bool> live;
    };
    size_t limit_, taken_ = 0;
    std::map<uint32_t, uint32_t> tables_;  // long-value object -> table object
    std::map<uint32_t, std::map<uint32_t, value>> trees_;  // long-value object -> id -> value
};
