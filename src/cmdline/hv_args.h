// Word-by-word lookups on the argument vector. Options are matched whole and case-insensitively;
// a value is simply the next word, whatever it looks like. Hits remove what they consume, so what
// the option table leaves behind is what nobody claimed.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

using arg_list = std::vector<std::string>;

// Appends one word per argv entry (a null entry becomes ""); true when at least one was stored.
bool args_from_argv(arg_list& out, int argc, const char* const* argv);

// Same length and equal after lowering both.
bool option_equal(std::string a, std::string b);

// True when present; removes the first match unless `keep`. Element 0 takes part.
bool take_flag(const std::string& option, arg_list& args, bool keep = false);

// True when present; nothing removed.
bool has_flag(const std::string& option, const arg_list& args, bool skip_first = false);

// True when the option has a value behind it; removes both. An option that stands last
// counts as absent and stays; `value` is left alone whenever the answer is false.
bool take_option(const std::string& option, std::string& value, arg_list& args);

// As take_option, removing nothing.
bool peek_option(const std::string& option, std::string& value, const arg_list& args,
                 bool skip_first = false);

// False when the index is out of range.
bool remove_arg(size_t index, arg_list& args);

// All words, element 0 included, one blank apart; a word holding a blank is wrapped in `quote`.
bool join_command_line(std::string& out, const arg_list& args, char quote);
