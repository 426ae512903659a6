#include "cmdline/hv_args.h"

#include <locale>

namespace {

void lower_in_place(std::string& text) {
    const auto& facet = std::use_facet<std::ctype<char>>(std::locale::classic());
    for (char& c : text) c = facet.tolower(c);
}

// Index of the first word equal to `option`, or args.size() when there is none.
size_t find_word(const std::string& option, const arg_list& args, bool skip_first) {
    for (size_t i = skip_first ? 1 : 0; i < args.size(); ++i)
        if (option_equal(option, args[i])) return i;
    return args.size();
}

}  // namespace

bool args_from_argv(arg_list& out, int argc, const char* const* argv) {
    bool stored = false;
    for (int i = 0; argv && i < argc; ++i) {
        out.emplace_back(argv[i] ? argv[i] : "");
        stored = true;
    }
    return stored;
}

bool option_equal(std::string a, std::string b) {
    if (a.size() != b.size()) return false;
    lower_in_place(a);
    lower_in_place(b);
    return a == b;
}

bool take_flag(const std::string& option, arg_list& args, bool keep) {
    size_t at = find_word(option, args, false);
    if (at == args.size()) return false;
    if (!keep) remove_arg(at, args);
    return true;
}

bool has_flag(const std::string& option, const arg_list& args, bool skip_first) {
    return find_word(option, args, skip_first) != args.size();
}

bool take_option(const std::string& option, std::string& value, arg_list& args) {
    size_t at = find_word(option, args, false);
    if (at + 1 >= args.size()) return false;  // absent, or last with no value behind it
    value = args[at + 1];
    remove_arg(at, args);
    remove_arg(at, args);  // the value has moved into the option's place
    return true;
}

bool peek_option(const std::string& option, std::string& value, const arg_list& args,
                 bool skip_first) {
    size_t at = find_word(option, args, skip_first);
    if (at + 1 >= args.size()) return false;
    value = args[at + 1];
    return true;
}

bool remove_arg(size_t index, arg_list& args) {
    if (index >= args.size()) return false;
    args.erase(args.begin() + static_cast<std::ptrdiff_t>(index));
    return true;
}

bool join_command_line(std::string& out, const arg_list& args, char quote) {
    out.clear();
    for (size_t i = 0; i < args.size(); ++i) {
        if (i) out += ' ';
        if (args[i].find(' ') != std::string::npos)
            out += quote + args[i] + quote;
        else
            out += args[i];
    }
    return true;
}
