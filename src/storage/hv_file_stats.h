// A file's status as the list roads test it: the host's status record, birth time included, and the
// metadata record the name filters' time window reads.
#pragma once
#include <sys/stat.h>

#include <cstdint>
#include <string>

// File metadata as the filter test needs it; filled by get_file_stats.
struct file_stats {
    std::string path;        // not used by the filter
    uint64_t inode = 0;
    uint64_t size = 0;
    uint64_t mtime = 0;      // 0 until the record is filled
    uint64_t birthtime = 0;
    uint64_t ctime = 0;
    uint64_t atime = 0;
    uint64_t mode = 0;
    int32_t time_kind = 0;   // 8: seconds since 1970 (mtime fits 32 bits), else 16
    bool is_dir = false;     // mode & 0x4000
    std::string name;        // not used by the filter

    void clear() { *this = file_stats(); }
    bool valid() const { return mtime != 0; }
};

namespace uni {

// The host's status record plus the birth time it keeps apart (0 where none is given).
struct stat_record {
    struct stat st;
    int64_t birth_seconds;
};
// Status of a path, following links. The record is zeroed first.
bool stat_file(stat_record& record, const std::wstring& path);
// Fills `out` (cleared first) from stat_file; times in seconds since 1970.
bool get_file_stats(file_stats& out, const std::wstring& path);
// The inode number, 0 on failure. What uses it: nothing on the roads.
uint64_t file_inode_of(const std::wstring& path);

}  // namespace uni

using uni::file_inode_of;
using uni::get_file_stats;
using uni::stat_file;
