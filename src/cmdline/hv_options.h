// The option table: every word the command line may hold, looked for in a fixed order. Each hit
// removes its words, so the order is behaviour: a later entry sees only what is left.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "cmdline/hv_args.h"
#include "storage/hv_vmdk.h"  // check_vmdk_list

class cmd_params;
class cmd_opts;

// Fills `opts` from `args`. False stops the run (a message is on standard error, except for a
// time bound whose date has no separator); options taken before the failure stay in effect.
bool parse_options(cmd_opts& opts, arg_list& args);

// separator := text; the two derived characters follow it. "tab" and "\t" (any case) mean a tab.
void set_separator(cmd_params& params, const std::string& text, bool semicolon_for_comma);

// -threads: hexadecimal after an 'x' anywhere, octal after an 'o', else decimal when the text starts
// with '+', '-' or a digit. False, `out` untouched, for any other text.
bool parse_signed_number(const std::string& text, int32_t& out);

// -filter_sig pieces: blank-separated hexadecimal bytes, and one offset word
// (0x.. / x.. hexadecimal, o.. octal, else decimal). A failed offset is 0.
std::vector<uint8_t> parse_byte_list(const std::string& text);
bool parse_sig_offset(const std::string& text, uint64_t& out);

// -offset values: hexadecimal after an 'x', octal after an 'o', else a signed decimal.
// False, `out` untouched, for any other text.
bool parse_offset(const std::string& text, uint64_t& out);

// The -vmdk option: splits the value(s) into `opts.vmdk_files`, reads -offset and checks the
// chain. False when the list is refused (the message is already on standard error).
bool parse_vmdk_list(cmd_opts& opts, std::vector<std::string>& args,
                     vmdk_check_fn check = check_vmdk_list, vmdk_second_check_fn second_check = nullptr,
                     bool skip_table = true, std::string const& option_word = "-vmdk");
