// The report's header row and its rows: plain delimited text, nothing quoted or escaped.
#pragma once
#include <ostream>

#include "cache/hv_activity.h"

class cmd_opts;

// The column names, each followed by the separator but the last, then a line end.
void write_header_row(std::ostream& out, const cmd_opts& opts);

// One row and its line end. With show_note_columns the caller has written the row's number and
// a separator already.
void write_activity_row(const activity_record& row, std::ostream& out, const cmd_opts& opts);
