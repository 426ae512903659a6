// The WebCache database on the file road (-f, -pipe, -enumdir, a file found by -image): a file whose
// first bytes are an ESE database's header is read through its tables and its pages, each record
// becoming a row of the report.
#pragma once

#include "driver/hv_process_input.h"

class image_reader;

// When `file`, named by `input`, is a database: its rows go through the run's scan, and what can't be
// read is told; `result` is whether it gave rows, and the answer true. False, with nothing done, for
// any other file, and for a database in a build without libesedb, which is then read as any other file
// (said once a run).
bool read_database(run_context& run, const input_ref& input, image_reader& file, bool& result);
