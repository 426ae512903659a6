#include "cmdline/hv_options.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "cmdline/hv_cmd_params.h"
#include "cmdline/hv_host.h"
#include "foundation/hv_console.h"
#include "foundation/hv_date_text.h"
#include "foundation/hv_string.h"
#include "foundation/hv_time.h"
#include "input/hv_name_filter.h"
#include "storage/hv_ewf.h"
#include "storage/hv_tsk.h"
#include "storage/hv_fileio.h"
#include "storage/hv_sqlite.h"
#include "storage/hv_text_conversion.h"
#include "storage/hv_vmdk.h"

namespace {

const char blank_set[] = " \t\r\n";

void message(const std::string& text) { std::fputs(text.c_str(), stderr); }

void clear_formats(cmd_params& p) {
    p.format_xml = false;
    p.format_csv = false;
    p.format_csvl2t = false;
    p.format_bodyfile = false;
    p.format_multiline = false;
}

void fill_run_names(cmd_params& p, const arg_list& args) {
    if (p.command_line.empty()) join_command_line(p.command_line, args, '"');
    if (p.program_name.empty()) {
        std::string name = args[0];
        size_t slash = name.rfind('/');
        if (slash != std::string::npos) name.erase(0, slash + 1);
        size_t dot = name.rfind('.');
        if (dot != std::string::npos) name.erase(dot);
        p.program_name = name;
    }
}

bool take_number(const char* option, uint32_t& out, arg_list& args) {
    std::string value;
    if (!take_option(option, value, args)) return false;
    parse_uint_text(value.c_str(), &out);  // no known form gives 0, without a word
    return true;
}

// -diags: the log is optional; a file that can't be made leaves no trace and no message.
void take_diags(cmd_opts& o, arg_list& args) {
    std::string path;
    if (!take_option("-diags", path, args)) return;
    o.diags_path = path;
    o.diags_stream.reset(new std::ofstream(path, std::ios::out | std::ios::trunc));
    if (!o.diags_stream->good()) {
        o.diags_path.clear();
        o.diags_stream.reset();
        return;
    }
    o.diags_on = true;
    diag_line(o.diags(), o.command_line);
    if (take_flag("-l2", args))
        o.diags_level = 2;
    else if (take_flag("-l3", args))
        o.diags_level = 3;
}

void drop_one_trailing_slash(std::string& text) {
    if (!text.empty() && text.back() == '/') text.pop_back();
}

// -alias (file map) and -aliaspath (path map): "name|target|name|target...".
bool take_alias(const char* option, bool is_path, cmd_params& p, arg_list& args) {
    std::string value;
    if (!take_option(option, value, args)) return true;
    std::vector<std::string> pieces;
    split_list(value, '|', pieces);
    if (pieces.empty() && is_path) {
        p.path_alias_map.emplace("*", expand_path_text(value, true));
        return true;
    }
    if (pieces.empty() || pieces.size() % 2) {
        message("imbalanced alias to true pathfiles, aborting\n");
        return false;
    }
    for (size_t i = 0; i + 1 < pieces.size(); i += 2) {
        std::string name = expand_path_text(pieces[i], true);
        std::string target = expand_path_text(pieces[i + 1], true);
        to_lower(name);
        if (is_path) {
            remove_char(target, '"');
            drop_one_trailing_slash(name);
            drop_one_trailing_slash(target);
            p.path_alias_map.emplace(name, target);
        } else {
            p.file_alias_map.emplace(name, target);
        }
    }
    return true;
}

// -out, else -outfile. The probe proves the path can be written before any work is done; the
// file is then removed, so a failed run never leaves a half-written report behind, and main
// creates it anew. That removal is also why -append never appends.
bool take_out(cmd_params& p, arg_list& args) {
    std::string value;
    if (!take_option("-out", value, args) && !take_option("-outfile", value, args)) return true;
    p.out_path = expand_path_text(value, true);
    replace_char(p.out_path, '\\', '/', false);
    p.outfile_given = true;
    bool append = has_flag("-append", args, true);  // left in args: nobody claims it

    uni::fileio probe;
    bool opened = probe.open(p.out_path, true, false, !append);
    if (!opened && append) opened = probe.open(p.out_path, true, false, true);
    if (!opened) {
        std::fprintf(stderr, "prob opening file %s for output, aborting\n", p.out_path.c_str());
        return false;
    }
    probe.close();
    // Only a regular file is removed: a probe of /dev/null or a fifo must not delete it.
    struct stat st {};
    if (::lstat(p.out_path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) ::unlink(p.out_path.c_str());
    return true;
}

void set_filter_path(std::vector<filename_filter>& target, std::string path) {
    to_lower(path);
    std::wstring wide = wide_of(path);
    for (auto& item : target) {
        item.path = wide;
        item.path_length = static_cast<uint32_t>(wide.size());
    }
}

// -filter_skip and -filter. Only the first of each is claimed: after it the word in hand is
// -filter_path, so a second -filter_path is read as a further filter list. Kept as it stands.
void take_filter_loop(const char* option, std::vector<filename_filter>& target, arg_list& args) {
    std::string word = option;
    std::string value;
    while (take_option(word, value, args)) {
        std::vector<filename_filter> items;
        parse_filter_text(items, value);
        target.insert(target.end(), items.begin(), items.end());
        word = "-filter_path";
        std::string path;
        if (!target.empty() && take_option("-filter_path", path, args)) set_filter_path(target, path);
    }
}

void take_filter_sigs(cmd_params& p, arg_list& args) {
    std::string value;
    while (take_option("-filter_sig", value, args)) {
        std::vector<std::string> pieces;
        split_list_any(value, "|,", pieces);
        std::vector<uint8_t> bytes = parse_byte_list(pieces[0]);
        uint64_t offset = 0;
        if (pieces.size() == 2) parse_sig_offset(pieces[1], offset);
        if (bytes.empty()) continue;
        filename_filter item;
        item.signature = bytes;
        item.signature_offset = offset;
        p.name_filters.push_back(item);
    }
}

// A time bound's date and time: split at the first blank; the date must hold '/' or '-'.
bool split_bound(const std::string& value, std::string& date, std::string& time, char& separator) {
    size_t blank = value.find(' ');
    date = value.substr(0, blank);
    if (blank != std::string::npos) time = value.substr(blank + 1);
    if (date.empty()) return false;
    if (date.find('/') != std::string::npos)
        separator = '/';
    else if (date.find('-') != std::string::npos)
        separator = '-';
    else
        return false;
    return true;
}

// Reads date and time as year, month, day into ticks and seconds; false when either doesn't read
// or the moment is no valid time.
bool read_bound(const std::string& date, const std::string& time, char separator, uint64_t& ticks,
                uint32_t& seconds) {
    hv::_windows_systemtime st;
    if (!parse_date_time_text(date.c_str(), time.c_str(), "YMD", separator, &st)) return false;
    hv::filetime_pair pair;
    ticks = hv::systemtime_to_filetime(&pair, &st);
    hv::time moment(ticks, hv::kind_filetime);
    if (!moment.valid) return false;
    seconds = static_cast<uint32_t>(moment.unix_seconds);
    return true;
}

void reset_start(cmd_params& p) {
    p.start_time_valid = false;
    p.start_time_filetime = 0;
    p.start_time_unix = 0;
}

void reset_stop(cmd_params& p) {
    p.stop_time_valid = false;
    p.stop_time_filetime = 0;
    p.stop_time_unix = 0;
}

bool take_start_time(cmd_params& p, arg_list& args) {
    std::string value, date, time;
    char separator = 0;
    if (!take_option("-cmd_start_time", value, args)) return true;
    reset_start(p);
    if (!split_bound(value, date, time, separator)) return false;  // silent, as it stands
    uint64_t ticks = 0;
    uint32_t seconds = 0;
    if (read_bound(date, time, separator, ticks, seconds)) {
        p.start_time_valid = true;
        p.start_time_filetime = ticks;
        p.start_time_unix = seconds;
        // A start alone has an open end.
        p.stop_time_filetime = ~0ULL;
        p.stop_time_unix = ~0U;
        p.stop_time_valid = true;
    } else {
        reset_stop(p);
        message("invalid start time, ignoring\n");
    }
    return true;
}

bool take_stop_time(cmd_params& p, arg_list& args) {
    std::string value, date, time = "23:59:59";
    char separator = 0;
    if (!take_option("-cmd_stop_time", value, args)) return true;
    reset_stop(p);
    if (!split_bound(value, date, time, separator)) return false;
    uint64_t ticks = 0;
    uint32_t seconds = 0;
    // The date text is read in the time's place too: the time part of the value is never looked
    // at, so only a date text holding a colon passes. Settled behaviour, kept.
    if (read_bound(date, date, separator, ticks, seconds) &&
        !(p.start_time_valid && ticks < p.start_time_filetime)) {
        p.stop_time_valid = true;
        p.stop_time_filetime = ticks;
        p.stop_time_unix = seconds;
    } else {
        message("invalid stop time, ignoring\n");
    }
    return true;
}

void take_date_format(cmd_params& p, arg_list& args) {
    std::string value;
    if (!take_option("-dateformat", value, args)) return;
    if (value.size() == 8 || value.size() == 10) {
        p.date_format = to_lower(value);
        return;
    }
    message("invalid " + value + ", using default format\n");
}

void take_time_format(cmd_params& p, arg_list& args) {
    std::string value;
    if (!take_option("-timeformat", value, args)) return;
    size_t n = value.size();
    if ((n == 8 || (n >= 12 && n <= 18)) && value.find(':') != std::string::npos) {
        p.time_format = to_lower(value);
        return;
    }
    message("invalid " + value + ", using default format\n");
}

bool hex_digit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }
bool oct_digit(char c) { return c >= '0' && c <= '7'; }
bool dec_digit(char c) { return c >= '0' && c <= '9'; }

bool all_of(const std::string& text, bool (*test)(char)) {
    for (char c : text)
        if (!test(c)) return false;
    return !text.empty();
}

}  // namespace

void set_separator(cmd_params& p, const std::string& text, bool semicolon_for_comma) {
    p.separator = text;
    if (p.quoted_csv) {
        p.separator_char = 0;
        p.subseparator_char = 0;
        return;
    }
    std::string lowered = text;
    to_lower(lowered);
    if (lowered.find('|') != std::string::npos) {
        p.separator_char = '|';
        p.subseparator_char = ';';
    } else if (lowered.find(',') != std::string::npos) {
        p.separator_char = ',';
        p.subseparator_char = semicolon_for_comma ? ';' : ' ';
    } else {
        p.separator_char = 0;
        p.subseparator_char = 0;
        if (lowered == "tab" || lowered == "\\t") p.separator = "\t";
    }
}

bool parse_signed_number(const std::string& text, int32_t& out) {
    int64_t value = 0;
    if (!parse_signed_text(text, value)) return false;
    out = static_cast<int32_t>(value);
    return true;
}

std::vector<uint8_t> parse_byte_list(const std::string& text) {
    std::vector<uint8_t> bytes;
    size_t at = 0;
    while (at < text.size()) {
        size_t start = text.find_first_not_of(blank_set, at);
        if (start == std::string::npos) break;
        size_t end = text.find_first_of(blank_set, start);
        std::string piece = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        bytes.push_back(static_cast<uint8_t>(std::strtoul(piece.c_str(), nullptr, 16) & 0xFF));
        at = end;
    }
    return bytes;
}

bool parse_sig_offset(const std::string& text, uint64_t& out) {
    out = 0;
    if (text.size() > 30) return false;
    size_t start = text.find_first_not_of(' ');
    if (start == std::string::npos) return false;
    std::string word = text.substr(start);
    if (word.find(' ') != std::string::npos) return false;

    std::string digits;
    int base = 10;
    bool (*test)(char) = dec_digit;
    size_t limit = 20;
    if (word.size() >= 3 && (word[1] == 'x' || word[1] == 'X')) {
        digits = word.substr(2), base = 16, test = hex_digit, limit = 16;
    } else if (word.size() >= 3 && (word[0] == 'x' || word[0] == 'X')) {
        digits = word.substr(1), base = 16, test = hex_digit, limit = 16;
    } else if (word[0] == 'o' || word[0] == 'O') {
        digits = word.substr(1), base = 8, test = oct_digit, limit = 22;
    } else {
        digits = word;
    }
    if (digits.size() > limit || !all_of(digits, test)) return false;
    errno = 0;
    unsigned long long value = std::strtoull(digits.c_str(), nullptr, base);
    if (errno == ERANGE) return false;
    out = value;
    return true;
}

bool parse_options(cmd_opts& o, arg_list& args) {
    if (args.empty()) return false;
    fill_run_names(o, args);

    if (take_flag("-pair_datetime", args)) o.pair_datetime = true;
    take_diags(o, args);
    if (take_flag("-csv", args)) {
        clear_formats(o);
        o.format_csv = true;
        set_separator(o, ",", false);
        o.no_whitespace = !o.pair_datetime;
    }
    if (take_flag("-csvgen", args)) {
        clear_formats(o);
        o.format_csvgen = true;
        set_separator(o, ",", false);
        o.no_whitespace = true;
    }
    if (take_flag("-csvl2t", args)) {
        clear_formats(o);
        o.format_csvl2t = true;
        o.header_pending = true;
        set_separator(o, ",", false);
    }
    if (take_flag("-bodyfile", args)) {
        clear_formats(o);
        o.format_bodyfile = true;
        o.header_pending = true;
        set_separator(o, "|", false);
    }
    if (take_flag("-xml", args)) {
        clear_formats(o);
        o.format_xml = true;
        o.header_pending = false;
        set_separator(o, "", false);
    }
    if (take_flag("-multiline", args)) {
        clear_formats(o);
        o.format_multiline = true;
        o.header_pending = true;
        o.separator.clear();
        o.separator_char = 0;
        o.subseparator_char = 0;
    }
    if (!take_alias("-alias", false, o, args)) return false;
    if (!take_alias("-aliaspath", true, o, args)) return false;
    if (take_flag("-gzip", args)) o.compress = o.compress_gzip = true;
    if (take_flag("-zlib", args)) o.compress = o.compress_zlib = true;

    std::string value;
    if (take_option("-threads", value, args)) parse_signed_number(value, o.threads);
    if (take_option("-zlibex", value, args)) {
        o.compress = o.compress_zlibex = true;
        o.zlibex_arg = value;
    }
    if (take_option("-sqlite_log", value, args)) {
        message("This option is not offered in this build\n");
        return false;
    }
    if (take_option("-sqlite", value, args)) {
        if (!sqlite_db::offered()) {
            message("This option is not offered in this build\n");
            return false;
        }
        o.sqlite_path = expand_path_text(value, true);
    }
    if (!ewf_image::offered() && take_option("-ewf", value, args)) {
        message("This option is not offered in this build\n");
        return false;
    }
    if (!tsk_image::offered() && take_option("-image", value, args)) {
        message("This option is not offered in this build\n");
        return false;
    }
    if (take_option("-signal", value, args)) o.signal_arg = value;
    if (take_option("-hostname", value, args)) {
        o.hostname = value;
        o.hostname_given = true;
    }
    if (take_flag("-split_pathfile", args)) o.split_pathfile = true;
    if (take_option("-username", value, args)) {
        o.username = value;
        o.username_given = true;
    }
    uint32_t number = 0;
    if (take_number("-cpuinst", number, args)) o.cpu_instances = static_cast<int32_t>(number);
    take_number("-cpu", o.cpu_limit, args);
    if (take_number("-fragment_files", o.fragment_files, args)) o.separate_files = true;
    if (take_flag("-separate_files", args)) o.separate_files = true;
    if (!take_out(o, args)) return false;
    if (take_option("-outdir", value, args)) {
        o.out_dir = expand_path_text(value, true);
        o.outdir_given = true;
    }
    if (take_option("-enumdir", value, args)) {
        o.enum_dir = expand_path_text(value, true);
        o.enum_dir_given = true;
    }
    take_number("-num_subdirs", o.num_subdirs, args);
    if (take_flag("-profile", args)) o.profile = true;
    if (take_flag("-pipe", args)) o.pipe_input = true;
    take_filter_loop("-filter_skip", o.skip_filters, args);
    take_filter_loop("-filter", o.name_filters, args);
    take_filter_sigs(o, args);
    if (!take_start_time(o, args)) return false;
    if (!take_stop_time(o, args)) return false;
    if (take_flag("-base10", args)) o.base16 = false;
    if (take_flag("-base16", args)) o.base16 = true;
    if (take_option("-csv_separator", value, args)) set_separator(o, value, false);
    if (take_flag("-enable_quoted_csv_fields", args)) {
        o.quoted_csv = true;
        if (o.separator.find('\t') == std::string::npos) trim_whitespace(o.separator);
        o.keep_whitespace = false;
        o.separator_char = 0;
    }
    if (take_flag("-no_whitespace", args)) {
        o.no_whitespace = true;
        o.keep_whitespace = false;
        remove_char(o.separator, ' ');
    }
    take_date_format(o, args);
    take_time_format(o, args);
    if (!take_flag("-verbose", args)) take_flag("-v", args);  // rows always have every column
    if (take_flag("-quiet", args)) o.show_progress = false;
    // The lossless report is CSV: it can't do without a separator between its fields.
    if (take_flag("-complete", args)) {
        o.complete_report = true;
        if (o.separator.empty()) {
            message("-complete needs a column separator: it is not offered with -xml or -multiline\n");
            return false;
        }
    }
    // A timeline takes the lossless decoding and no separator; it has no header row.
    if (take_option("-timeline", value, args)) {
        if (value == "body") {
            o.timeline = timeline_form::body;
        } else if (value == "jsonl") {
            o.timeline = timeline_form::jsonl;
        } else {
            message("invalid -timeline form: " + value + ", use body or jsonl\n");
            return false;
        }
        o.complete_report = true;
        o.header_pending = false;
    }

    parse_date_time_format(&o.date_layout, o.date_format, o.time_format, o.pair_datetime);
    read_host_product_version(o);
    return true;
}

bool parse_offset(const std::string& text, uint64_t& out) {
    int64_t value = 0;
    if (!parse_signed_text(text, value)) return false;
    out = static_cast<uint64_t>(value);
    return true;
}

bool parse_vmdk_list(cmd_opts& opts, std::vector<std::string>& args, vmdk_check_fn check,
                     vmdk_second_check_fn second_check, bool skip_table, std::string const& option_word) {
    if (!skip_table) {
        if (!parse_options(opts, args)) return false;
    } else if (args.empty()) {
        return false;
    }
    std::string value;
    if (!take_option(option_word, value, args)) return true;
    std::vector<std::string> pieces;
    split_list_any(value, "|,;", pieces);
    for (const std::string& piece : pieces) opts.vmdk_files.push_back(wide_of(piece));
    while (take_option(option_word, value, args)) opts.vmdk_files.push_back(wide_of(value));

    if (take_option("-offset", value, args)) parse_offset(value, opts.image_offset);

    std::ostringstream messages;
    std::vector<std::wstring> suggestion;
    if (check != nullptr && !check(opts.vmdk_files, messages, suggestion)) {
        std::cerr << messages.str() << "\n";
        if (!suggestion.empty()) {
            std::string joined;
            for (size_t i = 0; i < suggestion.size(); ++i) {
                if (i != 0) joined += " | ";
                joined += narrow_of(suggestion[i]);
            }
            std::cerr << "suggested array: " << option_word << " \"" << joined << "\"\n";
        }
        std::cerr.flush();
        return false;
    }
    if (second_check == nullptr) return true;
    bool ignore_image_size = opts.image_offset != 0 && take_flag("-ignore_image_size", args);
    uint8_t result = 0;
    if (!second_check(messages, opts.vmdk_files, opts.image_offset, result, ignore_image_size)) {
        std::cerr << messages.str() << "\n";
        return false;
    }
    return true;
}
