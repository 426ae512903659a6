// The file header of an ESE database (the IE10+ cache, WebCacheV01.dat, is one): enough of it to know a
// database by its bytes and to tell whether it was shut down cleanly. Pure over (bytes, size).
#pragma once
#include <cstddef>
#include <cstdint>

struct ESE_FILE_HEADER {
    static constexpr size_t size = 240;  // the bytes read: up to the page size
    static constexpr size_t at_signature = 4;    // u32 0x89ABCDEF, stored EF CD AB 89
    static constexpr size_t at_file_type = 12;   // u32: 0 database, 1 streaming file
    static constexpr size_t at_state = 52;       // u32: 2 dirty shutdown, 3 clean shutdown
    static constexpr size_t at_page_size = 236;  // u32, bytes

    static constexpr uint32_t signature_value = 0x89ABCDEF;
    static constexpr uint32_t state_dirty_shutdown = 2;
    static constexpr uint32_t state_clean_shutdown = 3;

    uint8_t bytes[size];

    // Copies the header from the first `count` bytes of a file; false when they are fewer.
    bool read(const uint8_t* from, size_t count);
    uint32_t signature() const;
    uint32_t state() const;
    uint32_t page_size() const;
    // The signature and a page size the format knows (2, 4, 8, 16 or 32 KiB).
    bool valid() const;
    // Any state but a clean shutdown: records may still wait in the transaction logs.
    bool dirty() const { return state() != state_clean_shutdown; }
};
static_assert(sizeof(ESE_FILE_HEADER) == ESE_FILE_HEADER::size, "ESE_FILE_HEADER holds exactly the copied bytes");

// Whether the first `count` bytes of a file are an ESE database's header.
bool looks_like_ese_database(const uint8_t* bytes, size_t count);
