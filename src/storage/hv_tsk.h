// Evidence images through The Sleuth Kit's library: any format it opens (raw, split raw, E01, VMDK,
// VHD, VHDX, AFF), its volumes, and the files of every file system it can walk. The media and each
// file are read behind image_reader. A build without libtsk offers none of it.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/hv_image.h"

// Whether a file's name is still kept by its file system.
enum class image_file_state : int8_t { none = 0, allocated, deleted };

// Bytes of a file that lie in one stretch of the media, in the file's order.
struct image_file_run {
    uint64_t file_offset = 0;
    uint64_t media_offset = 0;
    uint64_t length = 0;
};

// A regular file met in the walk: its path as the file system names it (with its volume first when
// the image has several), its state, size and where its bytes lie on the media.
struct image_file {
    std::string path;
    image_file_state state = image_file_state::none;
    uint64_t size = 0;
    std::vector<image_file_run> runs;
};

// What the walk tells as it goes. `content` reads the file's bytes through its file system and is
// valid during the call only.
class image_walk_events {
public:
    virtual ~image_walk_events() = default;
    // A file whose first bytes are `head` (fewer when the file is shorter or won't read).
    virtual void file(const image_file& facts, const uint8_t* head, size_t head_size, image_reader& content) = 0;
    // A volume at `sector` whose file system can't be opened; `whole` when there is no volume system.
    virtual void no_file_system(uint64_t sector, bool whole) = 0;
    // Files met so far, every few thousand.
    virtual void walked(uint64_t files) { (void)files; }
};

class tsk_image : public image_reader {
public:
    tsk_image();
    ~tsk_image() override;
    tsk_image(const tsk_image&) = delete;
    tsk_image& operator=(const tsk_image&) = delete;

    static bool offered();

    // Opens `path` (the first segment of a split or E01 set; the rest are found beside it), read-only,
    // its format found by libtsk. False with libtsk's reason in `error` when it won't open.
    bool open(const std::string& path, std::string& error);
    // Bytes in memory, not owned, as a raw image: the fuzzers' and tests' way in.
    bool open_memory(const uint8_t* data, size_t size);

    uint64_t size() const override;
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override;

    // Walks every file system: of each volume of the volume system, or of the whole image. Every
    // regular file, live or deleted, comes to `events`, with the first `head_size` bytes of its content.
    void walk(image_walk_events& events, size_t head_size);

private:
    struct state;
    std::unique_ptr<state> state_;
};
