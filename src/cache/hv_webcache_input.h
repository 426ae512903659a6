// The WebCache database on the file road (-f, -pipe, -enumdir): a file whose first bytes are an ESE
// database's header is read through the webcache layer, each record becoming a row of the report.
#pragma once
#include <string>

#include "cache/hv_activity.h"
#include "webcache/hv_webcache.h"

class cmd_opts;
class image_reader;
class input_scan;

// The cache kind of a container's records, from its name as the path's words decide it for index.dat.
uint32_t webcache_container_kind(const std::string& name);

// A record as a row: `whole` keeps the texts' bytes as the lossless report does; `source` is the last
// column.
void fill_activity_from_webcache(activity_record& row, const webcache_record& record, bool whole,
                                 const std::string& source);

// When `file`, named by opts.current_file, is a database: its rows go through `scan`, and what can't
// be read is told; `result` is whether it gave rows, and the answer true. False, with nothing done, for
// any other file, and for a database in a build without libesedb, which is then read as any other file
// (said once a run).
bool read_database(input_scan& scan, cmd_opts& opts, image_reader& file, bool& result);
