// Images made by the real tools from raw disks the builder wrote: E01 sets by ewfacquire, VMDK disks by
// qemu-img. Each answers false when the tool failed; tests that use one say so with RAVEL_NEEDS.
#pragma once
#include <cstdint>
#include <cstdlib>
#include <string>

#include "storage/hv_ewf.h"
#include "support/needs.h"

namespace testsupport {

inline std::string quoted(const std::string& path) { return "'" + path + "'"; }
inline bool shell(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

inline std::string missing_ewf_tools() { return missing_tools({"ewfacquire"}, "ewf-tools"); }
// What the -ewf road lacks here: libewf in the build, or the tool that makes the sets.
inline std::string missing_ewf_road() {
    if (!ewf_image::offered()) return "ravel built without libewf (Debian package libewf-dev)";
    return missing_ewf_tools();
}
inline std::string missing_qemu_tools() { return missing_tools({"qemu-img", "qemu-io"}, "qemu-utils"); }

// `raw` acquired, unattended, as `target`.E01, .E02, ... with "none" or "fast" compression; segments of at
// most `segment_bytes` (1 MiB or more; 0 for the tool's default, which holds a small disk in one).
inline bool ewf_acquire(const std::string& raw, const std::string& target, const std::string& compression,
                        uint64_t segment_bytes = 0) {
    std::string command = "ewfacquire -u -q -c " + compression + " -t " + quoted(target);
    if (segment_bytes != 0) command += " -S " + std::to_string(segment_bytes);
    return shell(command + " " + quoted(raw));
}

// `raw` as a VMDK disk of `subformat` (monolithicSparse, streamOptimized).
inline bool qemu_vmdk(const std::string& raw, const std::string& vmdk, const std::string& subformat) {
    return shell("qemu-img convert -q -f raw -O vmdk -o subformat=" + subformat + " " + quoted(raw) + " " +
                 quoted(vmdk));
}

}  // namespace testsupport
