#include "storage/hv_file_stats.h"

#include <fcntl.h>

#include <cstring>

#include "storage/hv_text_conversion.h"

namespace uni {

namespace {

constexpr unsigned dir_bit = 0x4000;

}  // namespace

bool stat_file(stat_record& record, const std::wstring& path) {
    std::memset(&record, 0, sizeof record);
    std::string narrow = narrow_of(path);
    if (narrow.empty()) return false;
    if (stat(narrow.c_str(), &record.st) != 0) return false;
#ifdef __APPLE__
    record.birth_seconds = record.st.st_birthtimespec.tv_sec;
#elif defined(STATX_BTIME)
    struct statx extra;
    if (statx(AT_FDCWD, narrow.c_str(), AT_STATX_SYNC_AS_STAT, STATX_BTIME, &extra) == 0 &&
        (extra.stx_mask & STATX_BTIME) != 0)
        record.birth_seconds = extra.stx_btime.tv_sec;
#endif
    return true;
}

bool get_file_stats(file_stats& out, const std::wstring& path) {
    out.clear();
    if (path.empty()) return false;
    stat_record record;
    if (!stat_file(record, path)) return false;
    out.mode = static_cast<uint64_t>(record.st.st_mode);
    out.inode = static_cast<uint64_t>(record.st.st_ino);
    out.size = static_cast<uint64_t>(record.st.st_size);
    out.mtime = static_cast<uint64_t>(record.st.st_mtime);
    out.ctime = static_cast<uint64_t>(record.st.st_ctime);
    out.atime = static_cast<uint64_t>(record.st.st_atime);
    out.birthtime = static_cast<uint64_t>(record.birth_seconds);
    out.is_dir = (record.st.st_mode & dir_bit) != 0;  // a block device has the bit too
    out.time_kind = out.mtime > 0xFFFFFFFFull ? 16 : 8;
    return true;
}

uint64_t file_inode_of(const std::wstring& path) {
    stat_record record;
    if (!stat_file(record, path)) return 0;
    return static_cast<uint64_t>(record.st.st_ino);
}
}  // namespace uni
