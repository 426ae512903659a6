// The run: arguments, console, options, report stream, one road, exit status (0 or -1).
#pragma once

int run_driver(int argc, const char* const* argv);
