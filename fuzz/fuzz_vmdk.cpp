// The VMDK loader and reader over arbitrary bytes in memory. The input is cut in two at "VMDKNEXT"
// (a disk and a parent it may name by CID); each part is loaded as an extent and read at a few
// places, then the parts are linked as a chain and read as the device road reads it, empty
// stretches skipped.
#include <cstdint>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "driver/hv_big_file.h"
#include "indexdat/hv_scan.h"
#include "report/hv_report.h"
#include "storage/hv_image.h"
#include "storage/hv_vmdk.h"

namespace {

std::unique_ptr<VMWARE_DISK> load(const uint8_t* bytes, size_t size) {
    std::unique_ptr<VMWARE_DISK> disk(new VMWARE_DISK());
    if (!disk->load(std::unique_ptr<image_reader>(new memory_image(bytes, size)))) return nullptr;
    std::vector<uint8_t> buffer(8192);
    const uint64_t capacity = disk->capacity_bytes();
    const uint64_t places[] = {0, disk->grain_bytes - 512, disk->table_span, capacity - 1, capacity + 4096};
    for (uint64_t at : places) {
        uint64_t file_offset = 0;
        disk->map_offset(at, file_offset);
        disk->next_held(at);
        uint32_t length = static_cast<uint32_t>(buffer.size());
        disk->read(disk->fd, buffer.data(), at, length);
    }
    return disk;
}

// The chain as the device road reads it.
class chain_image : public image_reader {
public:
    explicit chain_image(VMWARE_COLLECTION& chain) : chain_(chain) {}
    uint64_t size() const override { return chain_.root->capacity_bytes(); }
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override {
        uint32_t piece = static_cast<uint32_t>(length);
        return chain_.read(buffer, offset, piece);
    }
    const uint8_t* view(uint64_t offset, size_t length) override {
        return chain_.view(offset, static_cast<uint32_t>(length));
    }
    uint64_t next_data(uint64_t offset) override { return chain_.next_held(offset); }
    bool next_lost_range(uint64_t& offset, uint64_t& length) override { return chain_.next_lost_range(offset, length); }

private:
    VMWARE_COLLECTION& chain_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string whole(reinterpret_cast<const char*>(data), size);
    const size_t cut = whole.find("VMDKNEXT");
    VMWARE_COLLECTION chain(false);
    if (auto disk = load(data, cut == std::string::npos ? size : cut)) chain.add_disk(std::move(disk));
    if (cut != std::string::npos) {
        if (auto parent = load(data + cut + 8, size - cut - 8)) chain.add_disk(std::move(parent));
    }
    // A capacity past a few GiB would take the road long to walk even with nothing in it.
    if (!chain.link() || chain.root->capacity_bytes() > (uint64_t{4} << 30)) return 0;
    std::ostringstream out;
    rows_writer report(out, report_settings());
    input_scan scan(report, false);
    input_ref input;
    input.road = road_kind::vmdk;
    input.vmdk_files = {L"fuzz.vmdk"};
    scan.begin_input(input);
    chain_image image(chain);
    scan_device(scan, image, true);
    scan.end_input();
    return 0;
}
