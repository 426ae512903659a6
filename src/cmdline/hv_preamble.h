// The two texts outside the rows: the report preamble (banner, run line, command line) and the usage.
#pragma once
#include <sstream>
#include <string>

#include "cmdline/hv_args.h"

constexpr const char* ravel_banner = "ravel ver: 0.93";

// Runs before the option table, on the untouched `args`. Answers false after showing the usage
// (a help word, or no argument at all): the run then ends with status 0. Otherwise fills
// `report_preamble` with its three lines, each ended by a line end.
bool start_up(arg_list& args, std::ostringstream& report_preamble);

// The host's name, or "<unk>" when it can't be had.
std::string computer_name();

// The usage text on standard error, naming the program by the last part of its path.
void print_usage(const char* program_path);
