#include "cmdline/hv_cmd_params.h"

#include "storage/hv_fileio.h"

cmd_params::cmd_params() { clear(); }

cmd_params::~cmd_params() = default;

console_settings cmd_params::console() const {
    console_settings settings;
    settings.show_progress = show_progress;
    settings.diags_good = diags_on && diags_stream && diags_stream->good();
    settings.diags_path = diags_path;
    settings.profile = profile;
    settings.signal_arg = signal_arg;
    settings.append_file = uni::append_to_file;
    return settings;
}

time_window cmd_params::time_bounds() const {
    time_window window;
    window.start_valid = start_time_valid;
    window.start_filetime = start_time_filetime;
    window.start_unix = start_time_unix;
    window.stop_valid = stop_time_valid;
    window.stop_filetime = stop_time_filetime;
    window.stop_unix = stop_time_unix;
    return window;
}

void cmd_params::clear() {
    command_line.clear();
    program_name.clear();
    out_path.clear();
    out_dir.clear();
    username.clear();
    hostname.clear();
    path_alias_map.clear();
    file_alias_map.clear();
    date_format = "yyyy-mm-dd";
    time_format = "hh:mm:ss.xxx";
    date_layout.clear();
    separator_char = '|';
    subseparator_char = ';';
    separator = " | ";
    no_whitespace = false;
    keep_whitespace = true;
    base16 = true;
    username_given = false;
    hostname_given = false;
    split_pathfile = false;
    quoted_csv = false;
    vmdk_files.clear();
    image_offset = 0;
    compress = false;
    compress_gzip = false;
    compress_zlib = false;
    compress_zlibex = false;
    zlibex_arg.clear();
    threads = 0;
    outdir_given = false;
    outfile_given = false;
    cpu_instances = -1;
    cpu_limit = 0;
    separate_files = false;
    fragment_files = 0;
    format_xml = false;
    format_csv = false;
    format_csvl2t = false;
    format_csvgen = false;
    format_bodyfile = false;
    format_multiline = false;
    show_progress = true;
    pair_datetime = false;
    header_pending = true;
    diags_on = false;
    diags_level = 0;
    diags_stream.reset();
    diags_path.clear();
    profile = false;
    signal_arg.clear();
    name_filters.clear();
    skip_filters.clear();
    pipe_input = false;
    enum_dir.clear();
    num_subdirs = 0;
    enum_dir_given = false;
    host_os_version.clear();
    host_os_major = 0;
    host_os_minor = 0;
    host_os_patch = 0;
    start_time_valid = false;
    start_time_filetime = 0;
    start_time_unix = 0;
    stop_time_valid = false;
    stop_time_filetime = 0;
    stop_time_unix = 0;
}

cmd_opts::cmd_opts() { clear(); }

cmd_opts::~cmd_opts() = default;

report_settings cmd_opts::report() const {
    report_settings settings;
    settings.separator = separator;
    settings.date_format = date_format;
    settings.time_format = time_format;
    settings.use_locale_format = use_locale_format;
    settings.header = header_pending;
    settings.complete = complete_report;
    settings.timeline = timeline;
    return settings;
}

void cmd_opts::clear() {
    cmd_params::clear();
    separator = ",";
    separator_char = ';';
    subseparator_char = ' ';
    format_csv = true;
    current_file.clear();
    use_locale_format = false;
    partition.clear();
    have_admin = false;
    ewf_file.clear();
    image_file.clear();
    complete_report = false;
    timeline = timeline_form::none;
    sqlite_path.clear();
}
