// The roads for inputs that don't fit one buffer: a big file read in overlapping chunks, and a
// device, image file or VMDK chain read in overlapping 64 KiB pieces. Both feed scan_buffer.
#pragma once
#include <cstdint>

#include "cache/hv_activity.h"

class cmd_opts;
class RAW_DISK_IO;
namespace uni { class fileio; }

constexpr uint32_t big_file_chunk_size = 32768;
constexpr uint32_t big_file_chunk_overlap = 4096;
constexpr uint32_t device_read_size = 65536;
constexpr uint32_t device_read_overlap = 4096;
// A percentage line is printed only at positions that are multiples of this.
constexpr uint32_t progress_divisor = 99;

// Scans `opts.current_file` in chunks; true when the file opened (rows or not).
bool scan_big_file(result_map& rows, cmd_opts& opts);

// Callback of uni::fileio::process_chunks; `context` is the cmd_opts. Answers 0, or
// 0xFFFFFFFF when no result map is set.
uint32_t big_file_chunk(uni::fileio* file, void* context, uint8_t* chunk, uint32_t length,
                        uint32_t overlap, uint64_t offset);

// Opens `opts.partition` or else the chain in `opts.vmdk_files` and scans it; true when the read
// loop ran to its end.
bool scan_device_input(result_map& rows, cmd_opts& opts);
bool scan_device(result_map& rows, cmd_opts& opts, RAW_DISK_IO& disk);
