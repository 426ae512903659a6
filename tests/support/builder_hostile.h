// Containers with hostile field values, made from a seed: the inputs of the property tests that compare
// the default decoding with the lossless one, and of the differential runs kept while the decoders change.
#pragma once
#include <cstdint>
#include <string>

#include "support/builder.h"

namespace testsupport {

// The container of `seed`: a header and up to eight URL, LEAK and REDR entries, some of whose 32-bit
// fields hold 0, 0xDEADBEEF, 0xFFFFFFFF, the entry's size or the input's size, some of whose texts lose
// their end, and which the input's end may cut. The same seed gives the same bytes.
byte_image hostile_container(uint32_t seed);

// `base` with the fields of the entries on its 128-byte grid set as hostile_container sets them.
byte_image hostile_mutant(const std::string& base, uint32_t seed);

}  // namespace testsupport
