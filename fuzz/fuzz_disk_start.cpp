// The first bytes of a disk: the partition table walk with and without a bare volume accepted,
// and the file system test on the bytes as one boot sector.
#include <cstdint>
#include <deque>

#include "storage/hv_disk_structs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::deque<partition_info> volumes;
    parse_disk_start(data, size, volumes, false);
    parse_disk_start(data, size, volumes, true);
    partition_info volume;
    identify_volume(volume, data, static_cast<uint32_t>(size));
    MASTER_BOOT_RECORD record;
    if (record.load(data, size, 0)) record.is_vol_boot_record_instead();
    return 0;
}
