#include "storage/hv_tsk.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <unordered_set>

#ifdef RAVEL_HAVE_TSK
#include <dlfcn.h>
#include <tsk/libtsk.h>

namespace {

// libtsk is loaded when the first image is opened, not when ravel starts: with the libraries it brings
// (afflib's network and crypto stack among them, some thirty) its loading would cost every run, on every
// road, more than reading a container does.
#define RAVEL_TSK_FUNCTIONS(X)                                                                            \
    X(tsk_error_get) X(tsk_error_reset) X(tsk_fs_file_read) X(tsk_fs_file_attr_get) X(tsk_fs_dir_walk)   \
    X(tsk_img_close) X(tsk_img_open_utf8) X(tsk_img_open_external) X(tsk_img_read) X(tsk_vs_open)        \
    X(tsk_fs_open_img) X(tsk_fs_close) X(tsk_vs_part_get) X(tsk_fs_open_vol) X(tsk_vs_close)
struct tsk_library {
#define RAVEL_TSK_POINTER(name) decltype(&::name) name = nullptr;
    RAVEL_TSK_FUNCTIONS(RAVEL_TSK_POINTER)
#undef RAVEL_TSK_POINTER
    bool loaded = false;

    tsk_library() {
        void* library = dlopen(RAVEL_TSK_SONAME, RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) return;
        bool all = true;
#define RAVEL_TSK_TAKE(name) all = (name = reinterpret_cast<decltype(name)>(dlsym(library, #name))) != nullptr && all;
        RAVEL_TSK_FUNCTIONS(RAVEL_TSK_TAKE)
#undef RAVEL_TSK_TAKE
        loaded = all;
    }
};

const tsk_library& tsk() {
    static const tsk_library library;
    return library;
}

const char no_library[] = "libtsk (" RAVEL_TSK_SONAME ") could not be loaded";

}  // namespace

namespace {

// A raw image in memory for libtsk's external image layer: the struct libtsk knows comes first.
struct memory_img {
    TSK_IMG_INFO base;
    const uint8_t* data;
    size_t size;
};

ssize_t memory_img_read(TSK_IMG_INFO* img, TSK_OFF_T offset, char* buffer, size_t length) {
    const memory_img* m = reinterpret_cast<const memory_img*>(img);
    if (offset < 0 || static_cast<uint64_t>(offset) >= m->size) return 0;
    const size_t count = std::min<uint64_t>(length, m->size - static_cast<uint64_t>(offset));
    std::memcpy(buffer, m->data + offset, count);
    return static_cast<ssize_t>(count);
}

// The struct stays ours: freed by the image, not by libtsk.
void memory_img_close(TSK_IMG_INFO*) {}
void memory_img_stat(TSK_IMG_INFO*, FILE*) {}

std::string tsk_reason() {
    const char* text = tsk().tsk_error_get();
    std::string reason = text != nullptr ? text : "unknown format";
    tsk().tsk_error_reset();
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' ')) reason.pop_back();
    return reason;
}

// `length` bytes at `offset` of something `total` long, read piece by piece through `read_some` (libtsk's
// reads may answer short), zeros past the end; false at the first read that gives nothing.
template <typename ReadSome>
bool read_whole(uint64_t total, uint64_t offset, uint8_t* buffer, size_t length, ReadSome read_some) {
    size_t done = 0;
    while (done < length && offset + done < total) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(length - done, total - offset - done));
        const ssize_t got = read_some(static_cast<TSK_OFF_T>(offset + done), reinterpret_cast<char*>(buffer + done), want);
        if (got <= 0) {
            tsk().tsk_error_reset();
            return false;
        }
        done += static_cast<size_t>(got);
    }
    std::memset(buffer + done, 0, length - done);
    return true;
}

// A file's content through its file system: its clusters in order, whatever their places.
class fs_file_reader : public image_reader {
public:
    fs_file_reader(TSK_FS_FILE* file, uint64_t size) : file_(file), size_(size) {}
    uint64_t size() const override { return size_; }
    bool read(uint64_t offset, uint8_t* buffer, size_t length) override {
        return read_whole(size_, offset, buffer, length, [this](TSK_OFF_T at, char* into, size_t want) {
            return tsk().tsk_fs_file_read(file_, at, into, want, TSK_FS_FILE_READ_FLAG_NONE);
        });
    }

private:
    TSK_FS_FILE* file_;
    uint64_t size_;
};

struct walk_context {
    image_walk_events* events;
    size_t head_size;
    std::string prefix;
    std::vector<uint8_t> head;
    std::unordered_set<uint64_t> seen;  // live metadata addresses met in this file system: hard links come once
    uint64_t files = 0;
    image_file facts;
};

void collect_runs(TSK_FS_FILE* file, image_file& facts) {
    facts.runs.clear();
    const TSK_FS_ATTR* attr = tsk().tsk_fs_file_attr_get(file);
    if (attr == nullptr) {
        tsk().tsk_error_reset();
        return;
    }
    // Resident, compressed or encrypted bytes don't lie on the media as the file reads them.
    if (!(attr->flags & TSK_FS_ATTR_NONRES) || (attr->flags & (TSK_FS_ATTR_COMP | TSK_FS_ATTR_ENC))) return;
    const TSK_FS_INFO* fs = file->fs_info;
    const uint64_t block = fs->block_size;
    size_t guard = 0;
    for (const TSK_FS_ATTR_RUN* run = attr->nrd.run; run != nullptr && guard < 1000000; run = run->next, ++guard) {
        if (run->len == 0 || (run->flags & (TSK_FS_ATTR_RUN_FLAG_FILLER | TSK_FS_ATTR_RUN_FLAG_SPARSE))) continue;
        image_file_run r;
        r.file_offset = run->offset * block;
        if (r.file_offset >= facts.size) break;
        r.media_offset = static_cast<uint64_t>(fs->offset) + run->addr * block;
        r.length = std::min<uint64_t>(run->len * block, facts.size - r.file_offset);
        facts.runs.push_back(r);
    }
}

TSK_WALK_RET_ENUM visit(TSK_FS_FILE* file, const char* path, void* pointer) {
    walk_context& c = *static_cast<walk_context*>(pointer);
    if (file->name == nullptr || file->meta == nullptr || file->meta->type != TSK_FS_META_TYPE_REG) return TSK_WALK_CONT;
    const bool deleted = (file->name->flags & TSK_FS_NAME_FLAG_UNALLOC) || (file->meta->flags & TSK_FS_META_FLAG_UNALLOC);
    // A deleted name may point at metadata that a live file holds now: only live names count as seen.
    if (!deleted && !c.seen.insert(file->meta->addr).second) return TSK_WALK_CONT;
    if (++c.files % 4096 == 0) c.events->walked(c.files);
    image_file& facts = c.facts;
    facts.path = c.prefix + "/" + (path != nullptr ? path : "") + (file->name->name != nullptr ? file->name->name : "");
    facts.state = deleted ? image_file_state::deleted : image_file_state::allocated;
    facts.size = file->meta->size > 0 ? static_cast<uint64_t>(file->meta->size) : 0;
    collect_runs(file, facts);
    size_t head_size = 0;
    if (facts.size != 0 && c.head_size != 0) {
        const ssize_t got = tsk().tsk_fs_file_read(file, 0, reinterpret_cast<char*>(c.head.data()),
                                             std::min<uint64_t>(c.head_size, facts.size), TSK_FS_FILE_READ_FLAG_NONE);
        if (got > 0)
            head_size = static_cast<size_t>(got);
        else
            tsk().tsk_error_reset();
    }
    fs_file_reader content(file, facts.size);
    c.events->file(facts, c.head.data(), head_size, content);
    return TSK_WALK_CONT;
}

void walk_file_system(TSK_FS_INFO* fs, walk_context& c) {
    c.seen.clear();
    const auto flags = static_cast<TSK_FS_DIR_WALK_FLAG_ENUM>(TSK_FS_DIR_WALK_FLAG_RECURSE | TSK_FS_DIR_WALK_FLAG_ALLOC |
                                                              TSK_FS_DIR_WALK_FLAG_UNALLOC);
    // A damaged directory ends that branch of the walk; what was met stands.
    if (tsk().tsk_fs_dir_walk(fs, fs->root_inum, flags, visit, &c) != 0) tsk().tsk_error_reset();
}

}  // namespace

struct tsk_image::state {
    TSK_IMG_INFO* img = nullptr;
    memory_img* memory = nullptr;
};

tsk_image::tsk_image() : state_(new state) {}

tsk_image::~tsk_image() {
    if (state_->img != nullptr) tsk().tsk_img_close(state_->img);
    std::free(state_->memory);
}

bool tsk_image::offered() { return true; }

bool tsk_image::open(const std::string& path, std::string& error) {
    if (!tsk().loaded) {
        error = no_library;
        return false;
    }
    const char* names[] = {path.c_str()};
    // One name: libtsk finds the other segments of a split raw or E01 set beside it.
    state_->img = tsk().tsk_img_open_utf8(1, names, TSK_IMG_TYPE_DETECT, 0);
    if (state_->img == nullptr) {
        error = tsk_reason();
        return false;
    }
    return true;
}

bool tsk_image::open_memory(const uint8_t* data, size_t size) {
    if (!tsk().loaded) return false;
    state_->memory = static_cast<memory_img*>(std::calloc(1, sizeof(memory_img)));
    if (state_->memory == nullptr) return false;
    state_->memory->data = data;
    state_->memory->size = size;
    state_->img = tsk().tsk_img_open_external(state_->memory, static_cast<TSK_OFF_T>(size), 512, memory_img_read,
                                        memory_img_close, memory_img_stat);
    if (state_->img == nullptr) tsk().tsk_error_reset();
    return state_->img != nullptr;
}

uint64_t tsk_image::size() const {
    return state_->img != nullptr && state_->img->size > 0 ? static_cast<uint64_t>(state_->img->size) : 0;
}

bool tsk_image::read(uint64_t offset, uint8_t* buffer, size_t length) {
    return read_whole(size(), offset, buffer, length, [this](TSK_OFF_T at, char* into, size_t want) {
        return tsk().tsk_img_read(state_->img, at, into, want);
    });
}

void tsk_image::walk(image_walk_events& events, size_t head_size) {
    if (state_->img == nullptr) return;
    walk_context c;
    c.events = &events;
    c.head_size = head_size;
    c.head.resize(std::max<size_t>(head_size, 1));
    TSK_VS_INFO* vs = tsk().tsk_vs_open(state_->img, 0, TSK_VS_TYPE_DETECT);
    if (vs == nullptr) {
        tsk().tsk_error_reset();
        TSK_FS_INFO* fs = tsk().tsk_fs_open_img(state_->img, 0, TSK_FS_TYPE_DETECT);
        if (fs == nullptr) {
            tsk().tsk_error_reset();
            events.no_file_system(0, true);
            return;
        }
        walk_file_system(fs, c);
        tsk().tsk_fs_close(fs);
        return;
    }
    std::vector<const TSK_VS_PART_INFO*> volumes;
    for (TSK_PNUM_T i = 0; i < vs->part_count; ++i) {
        const TSK_VS_PART_INFO* part = tsk().tsk_vs_part_get(vs, i);
        if (part != nullptr && (part->flags & TSK_VS_PART_FLAG_ALLOC)) volumes.push_back(part);
    }
    // Each volume's path starts with its first sector when there are several.
    std::vector<TSK_FS_INFO*> systems;
    for (const TSK_VS_PART_INFO* part : volumes) {
        TSK_FS_INFO* fs = tsk().tsk_fs_open_vol(part, TSK_FS_TYPE_DETECT);
        if (fs == nullptr) tsk().tsk_error_reset();
        systems.push_back(fs);
    }
    for (size_t i = 0; i < volumes.size(); ++i) {
        const uint64_t sector = volumes[i]->start * (vs->block_size / 512 == 0 ? 1 : vs->block_size / 512);
        if (systems[i] == nullptr) {
            events.no_file_system(sector, false);
            continue;
        }
        c.prefix = volumes.size() > 1 ? std::to_string(sector) + ":" : std::string();
        walk_file_system(systems[i], c);
        tsk().tsk_fs_close(systems[i]);
    }
    tsk().tsk_vs_close(vs);
}

#else  // built without libtsk

struct tsk_image::state {};
tsk_image::tsk_image() : state_(new state) {}
tsk_image::~tsk_image() = default;
bool tsk_image::offered() { return false; }
bool tsk_image::open(const std::string&, std::string& error) {
    error = "This option is not offered in this build";
    return false;
}
bool tsk_image::open_memory(const uint8_t*, size_t) { return false; }
uint64_t tsk_image::size() const { return 0; }
bool tsk_image::read(uint64_t, uint8_t*, size_t) { return false; }
void tsk_image::walk(image_walk_events&, size_t) {}

#endif
