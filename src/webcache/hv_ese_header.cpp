#include "webcache/hv_ese_header.h"

#include <cstring>
#include <initializer_list>

#include "foundation/hv_bytes.h"

bool ESE_FILE_HEADER::read(const uint8_t* from, size_t count) {
    if (from == nullptr || count < size) return false;
    std::memcpy(bytes, from, size);
    return true;
}

uint32_t ESE_FILE_HEADER::signature() const { return hv::le32(bytes, size, at_signature); }
uint32_t ESE_FILE_HEADER::state() const { return hv::le32(bytes, size, at_state); }
uint32_t ESE_FILE_HEADER::page_size() const { return hv::le32(bytes, size, at_page_size); }

bool ESE_FILE_HEADER::valid() const {
    if (signature() != signature_value) return false;
    for (uint32_t known : {2048u, 4096u, 8192u, 16384u, 32768u})
        if (page_size() == known) return true;
    return false;
}

bool looks_like_ese_database(const uint8_t* bytes, size_t count) {
    ESE_FILE_HEADER header;
    return header.read(bytes, count) && header.valid();
}
