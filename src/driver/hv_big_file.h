// The roads for inputs that don't fit one buffer: a big file read in overlapping chunks, and a
// device, image file or VMDK chain read in overlapping 64 KiB pieces. Both feed the scan's windows.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>

#include "driver/hv_process_input.h"

class image_reader;
class input_scan;

constexpr uint32_t big_file_chunk_size = 32768;
constexpr uint32_t big_file_chunk_overlap = 4096;
constexpr uint32_t device_read_size = 65536;
constexpr uint32_t device_read_overlap = 4096;
// A percentage line is printed only at positions that are multiples of this.
constexpr uint32_t progress_divisor = 99;

// Scans a file of more than 16 MiB in chunks; true (rows or not), as the file is open.
bool scan_big_file(run_context& run, image_reader& file);

// Opens the partition or the VMDK chain of `input` and scans it; true when the read loop ran to its end.
bool scan_device_input(run_context& run, const input_ref& input);
// Another handle on the same bytes, for a worker of its own; null when there can't be one.
using reader_opener = std::function<std::unique_ptr<image_reader>()>;

// The device road over any image: `padded` images (a VMDK chain) give every read its full 64 KiB,
// zeros past their end; a device's last read is cut at its end. With `threads` above 1 and a way to
// open the image again, that many workers read (and inflate) the windows ahead, each through its own
// handle; the scan takes them in order, so the report is the same whatever `threads` is.
bool scan_device(input_scan& scan, image_reader& disk, bool padded, unsigned threads = 1,
                 const reader_opener& open_another = nullptr);
