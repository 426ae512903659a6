// Expert Witness images (segment files case.E01, case.E02, ...) read through libewf: the media they
// hold, as one flat run of bytes. libewf decodes the chunks; this layer asks it, checks its answers and
// keeps what was lost. It prints nothing: a failure to open is an answer the caller words. A build
// without libewf has the class, which then opens nothing.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "storage/hv_image.h"
#include "storage/hv_lost_ranges.h"

// Why a set of segment files was not opened.
enum class ewf_fault {
    none,
    not_offered,      // built without libewf
    cannot_open,      // the file named is missing, unreadable or a pipe
    not_ewf,          // it has no EWF signature
    segment_missing,  // a segment of the set is not there
    segment_cut,      // a segment ends before its closing section
    damaged,          // libewf refused the set, or found it incomplete, for another reason
};

class ewf_image : public image_reader {
public:
    ewf_image();
    ~ewf_image() override;
    ewf_image(const ewf_image&) = delete;
    ewf_image& operator=(const ewf_image&) = delete;

    // Built with libewf.
    static bool offered();

    // Opens, for reading only, the set `path` belongs to; its other segments are found beside it as
    // libewf finds them (libewf_glob). For a missing or cut segment, `segment` names its file.
    ewf_fault open(const std::string& path, std::string& segment);
    // The same over segment files in memory, not owned, in their order (tests and fuzzers); they are
    // named segment.E01, segment.E02, ...
    ewf_fault open_memory(const std::vector<std::pair<const uint8_t*, size_t>>& segments, std::string& segment);
    void close();

    // The media's bytes.
    uint64_t size() const override { return media_size_; }
    // A chunk that fails its checksum, doesn't decompress or isn't there reads as zeros and is kept as
    // lost; bytes past the media's end read as zeros.
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override;
    // Lost chunks, each once, neighbours found together in one range.
    bool next_lost_range(uint64_t& offset, uint64_t& length) override;

private:
    struct library;  // libewf's handle, and the pool of segments in memory

    bool take_media();
    bool read_piece(uint64_t offset, uint8_t* buffer, size_t length);
    bool checksum_failed(uint64_t begin, uint64_t end);

    std::unique_ptr<library> library_;
    uint64_t media_size_ = 0;
    uint64_t chunk_size_ = 0;
    uint64_t sector_size_ = 0;
    lost_ranges lost_;  // in chunks
};

// The descriptor that leads each section of a segment file, kept as read. The sections follow the
// file's 13-byte header (signature, segment number), each pointing at the next.
struct EWF_SECTION_DESCRIPTOR {
    static constexpr size_t size = 76;
    static constexpr uint64_t first_at = 13;  // file offset of the first descriptor
    static constexpr size_t at_type = 0;      // 16 bytes of text, NUL-padded: "header", "sectors", "next", ...
    static constexpr size_t type_size = 16;
    static constexpr size_t at_next = 16;     // u64 file offset of the next section; the last points at itself
    static constexpr size_t at_size = 24;     // u64 bytes of the section, this descriptor included

    std::array<uint8_t, size> bytes{};

    std::string type() const;
    uint64_t next() const;
};
static_assert(sizeof(EWF_SECTION_DESCRIPTOR::bytes) == 76, "a section descriptor is 76 bytes");

// How a segment file ends, by its chain of sections: with "next" (another segment follows), with "done"
// (the last of the set), or cut short before either.
enum class ewf_segment_end { next, done, cut };
ewf_segment_end read_segment_end(image_reader& segment);

// The segment file after `name` in the naming of the format: .E01 to .E99, then .EAA to .EZZ, .FAA and
// on to .ZZZ, in the case of the first letter (.s01 and .L01 alike); "" when there is none.
std::string next_segment_name(const std::string& name);
