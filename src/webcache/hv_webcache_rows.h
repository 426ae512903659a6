// A WebCache database's records as entries: read by the library, found on the database's pages, or
// carved from any bytes.
#pragma once
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "entries/hv_activity.h"
#include "webcache/hv_webcache.h"
#include "webcache/hv_webcache_images.h"

class image_reader;

// The cache kind of a container's records, from its name as the path's words decide it for index.dat.
uint32_t webcache_container_kind(const std::string& name);

// A record as a row: `whole` keeps the texts' bytes as the lossless report does; `source` is the last
// column.
void fill_activity_from_webcache(activity_record& row, const webcache_record& record, bool whole,
                                 const std::string& source);

// The container a table name or a record's ContainerId names; containers the Containers table doesn't
// list are made up from the id alone, with no name.
class container_lookup {
public:
    explicit container_lookup(const std::vector<webcache_container>& listed);
    const webcache_container& of(uint64_t id);

private:
    std::map<uint64_t, const webcache_container*> by_id_;
    std::map<uint64_t, webcache_container> unlisted_;
};

// A row for an image found in bytes, at `offset` in the input; `page` 0 for a carved one.
void make_image_row(bool whole, const std::string& source, activity_record& row, webcache_image& image,
                    const webcache_container& container, uint64_t offset, uint64_t page);

// The Container_N record images carved from a window `bytes` at `base` of the input named `source`,
// those that start before `start_limit`, as "carved" rows in rising order of offset. An image the
// window's end cuts is read again through `input` (may be null) as far as an image can run.
void carve_webcache_rows(bool whole, const std::string& source, image_reader* input, const uint8_t* bytes,
                         size_t size, size_t start_limit, uint64_t base, std::vector<activity_record>& rows);
