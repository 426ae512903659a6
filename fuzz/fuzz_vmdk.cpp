// The VMDK loader and reader over arbitrary files. The input is written to a file in the scratch
// folder (cut in two at "VMDKNEXT": a disk and the parent it may name as "base.vmdk"); then one
// extent is opened and read at a few places, the list is checked as the -vmdk option does, and
// the chain is read as the device road reads it.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_common.h"
#include "storage/hv_fileio.h"
#include "storage/hv_raw_disk.h"
#include "storage/hv_vmdk.h"

namespace {

void save(const std::string& path, const char* bytes, size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes, static_cast<std::streamsize>(size));
}

void read_extent(const std::string& path) {
    VMWARE_DISK disk;
    if (!disk.open(path.c_str(), false)) return;
    std::vector<uint8_t> buffer(8192);
    const uint64_t capacity = disk.capacity_bytes();
    const uint64_t places[] = {0, disk.grain_bytes - 512, disk.table_span, capacity - 1, capacity + 4096};
    for (uint64_t at : places) {
        uint64_t file_offset = 0;
        disk.map_offset(at, file_offset);
        uint32_t length = static_cast<uint32_t>(buffer.size());
        disk.read(disk.fd, buffer.data(), at, length);
    }
}

}  // namespace

// A hostile header may ask for tables of up to 16 MiB that are freed at once: with the default
// quarantine of freed memory (256 MiB) the process grew to some 900 MB with nothing leaked.
// ASAN_OPTIONS in the environment still wins.
extern "C" const char* __asan_default_options() { return "quarantine_size_mb=64"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& dir = fuzzsupport::scratch_dir();
    const char* bytes = reinterpret_cast<const char*>(data);
    const std::string whole(bytes, size);
    const size_t cut = whole.find("VMDKNEXT");

    std::vector<std::wstring> files;
    const std::string disk_path = dir + "/disk.vmdk";
    const std::string base_path = dir + "/base.vmdk";
    ::unlink(base_path.c_str());
    if (cut == std::string::npos) {
        save(disk_path, bytes, size);
    } else {
        save(disk_path, bytes, cut);
        save(base_path, bytes + cut + 8, size - cut - 8);
    }
    files.push_back(wide_of(disk_path));
    if (cut != std::string::npos) files.push_back(wide_of(base_path));

    read_extent(disk_path);

    std::ostringstream messages;
    std::vector<std::wstring> suggestion;
    check_vmdk_list(files, messages, suggestion);

    RAW_DISK_IO chain(files, false, false);
    if (chain.valid()) {
        std::vector<uint8_t> buffer(65536);
        const uint64_t total = chain.get_size();
        const uint64_t places[] = {0, 61440, total > 100 ? total - 100 : 0, total};
        for (uint64_t at : places) {
            uint32_t length = static_cast<uint32_t>(buffer.size());
            chain.read(buffer.data(), length, at);
        }
    }
    return 0;
}
