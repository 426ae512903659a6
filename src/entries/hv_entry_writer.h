// What every writer of entries has: the one interface between the readers (the index.dat scan, the
// WebCache reader) and the report forms (rows, -complete, timelines, the case database).
#pragma once
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "entries/hv_activity.h"

// How an input is reached; its word in the case database.
enum class road_kind : uint8_t { file, partition, vmdk, ewf, image };
const char* road_name(road_kind road);

// One input: what is read and how its rows name it. Made by the run for each input, never changed.
struct input_ref {
    road_kind road = road_kind::file;
    // As typed: the file, the partition's letter, the E01 segment, the image; a file found in an image
    // is "IMAGE:/its/path".
    std::string path;
    std::vector<std::wstring> vmdk_files;  // -vmdk: the chain
    std::string image;                     // a file found in an image: the image as typed

    // The rows' "index.dat filename": the path, "X:\" of a partition, or the chain's names.
    std::string source_text() const;
    // The evidence the input lies in: the image or disk as typed; empty for a file of its own.
    std::string image_text() const;
};

// What an input turned out to be, known at its end.
struct input_summary {
    uint64_t size = 0;  // bytes of the file, disk or image read
    uint32_t cache_category = cache_unknown;
    uint32_t containers = 0;  // container headers the lossless walk found in it
    uint64_t rows = 0;
};

// A report form. The readers hand it entries in the order the report shows them, input by input.
class entry_writer {
public:
    virtual ~entry_writer() = default;
    virtual void begin_input(const input_ref& input) = 0;
    virtual void write(const activity_record& entry) = 0;
    virtual void end_input(const input_summary& summary) = 0;
    // False once the writer's output has failed: nothing more will reach it.
    virtual bool ok() const = 0;

    // A copy for another thread that writes the same rows to `out`, never the header row; null for a
    // writer whose output can't be made apart (the case database).
    virtual std::unique_ptr<entry_writer> copy_to(std::ostream& out) const {
        (void)out;
        return nullptr;
    }
    // What such a copy wrote, written here in its turn, the header row first when it is still pending.
    virtual void write_made(const std::string& text) { (void)text; }
};

// Two writers fed the same entries: the report and the case database of one decoding.
class writer_pair : public entry_writer {
public:
    writer_pair(entry_writer& first, entry_writer& second) : first_(first), second_(second) {}
    void begin_input(const input_ref& input) override {
        first_.begin_input(input);
        second_.begin_input(input);
    }
    void write(const activity_record& entry) override {
        second_.write(entry);
        first_.write(entry);
    }
    void end_input(const input_summary& summary) override {
        first_.end_input(summary);
        second_.end_input(summary);
    }
    bool ok() const override { return first_.ok() && second_.ok(); }

private:
    entry_writer& first_;
    entry_writer& second_;
};
