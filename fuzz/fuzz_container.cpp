// The container outside its entries: the directory table, and the walk over the HASH chain.
#include <cstdint>

#include "indexdat/hv_container.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint32_t length = static_cast<uint32_t>(size);
    INDEX_DAT_RECORD names;
    if (read_directory_table(names, data, length)) {
        for (int index = 0; index < 256; ++index) directory_name_of(names, static_cast<uint8_t>(index));
    }
    INDEX_DAT_RECORD record;
    record.walk_hash_tables(data, length);
    return 0;
}
