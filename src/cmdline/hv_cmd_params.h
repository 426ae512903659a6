// The option table's own record: hv_options fills it, and the run turns it into the plain values the
// layers below take (the report's settings, the inputs, the roads' settings). Nothing below the driver
// sees it.
#pragma once
#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "foundation/hv_console.h"
#include "foundation/hv_date_text.h"  // date_layout
#include "input/hv_name_filter.h"
#include "report/hv_report_settings.h"

class cmd_params {
public:
    cmd_params();
    virtual ~cmd_params();
    cmd_params(const cmd_params&) = delete;
    cmd_params& operator=(const cmd_params&) = delete;

    // Returns every field to its default; closes the diagnostics log.
    void clear();

    // The -diags log when it is open, else null.
    std::ostream* diags() const { return diags_on ? diags_stream.get() : nullptr; }
    // What the console context takes from the options.
    console_settings console() const;
    // What the name filters test a file's times against.
    time_window time_bounds() const;

    std::string command_line;
    std::string program_name;
    std::string out_path;  // report file; empty means standard output
    std::string out_dir;
    std::string username;
    std::string hostname;
    std::map<std::string, std::string> path_alias_map;
    std::map<std::string, std::string> file_alias_map;
    std::string date_format;
    std::string time_format;
    ::date_layout date_layout;
    char separator_char;
    char subseparator_char;
    std::string separator;  // written between report fields
    bool no_whitespace;
    bool keep_whitespace;
    bool base16;
    bool username_given;
    bool hostname_given;
    bool split_pathfile;
    bool quoted_csv;
    std::vector<std::wstring> vmdk_files;
    uint64_t image_offset;
    bool compress;
    bool compress_gzip;
    bool compress_zlib;
    bool compress_zlibex;
    std::string zlibex_arg;
    int32_t threads;
    bool outdir_given;
    bool outfile_given;
    int32_t cpu_instances;
    uint32_t cpu_limit;
    bool separate_files;
    uint32_t fragment_files;
    bool format_xml;
    bool format_csv;
    bool format_csvl2t;
    bool format_csvgen;
    bool format_bodyfile;
    bool format_multiline;
    bool show_progress;
    bool pair_datetime;
    bool header_pending;  // the report has a column header
    bool diags_on;
    int32_t diags_level;
    std::unique_ptr<std::ofstream> diags_stream;  // owned log of -diags
    std::string diags_path;
    bool profile;
    std::string signal_arg;
    std::vector<filename_filter> name_filters;
    std::vector<filename_filter> skip_filters;
    bool pipe_input;
    std::string enum_dir;
    uint32_t num_subdirs;
    bool enum_dir_given;
    std::string host_os_version;
    uint32_t host_os_major;
    uint32_t host_os_minor;
    uint32_t host_os_patch;
    bool start_time_valid;
    uint64_t start_time_filetime;
    uint32_t start_time_unix;
    bool stop_time_valid;
    uint64_t stop_time_filetime;
    uint32_t stop_time_unix;
};

class cmd_opts : public cmd_params {
public:
    cmd_opts();
    ~cmd_opts() override;

    // Base defaults, then this program's: "," separator, csv format, the fields below.
    void clear();

    // How the report looks, from the fields above and below.
    report_settings report() const;

    std::string current_file;  // -f: the file as typed
    bool use_locale_format;
    std::string partition;
    bool have_admin;  // nothing sets it: a -partition run ends at its message
    std::string ewf_file;  // -ewf: a segment file of the E01 set, as typed
    std::string image_file;  // -image: the evidence image (its first segment), as typed
    bool complete_report;  // -complete: whole entries, every field's bytes, three more columns
    timeline_form timeline;
    std::string sqlite_path;  // -sqlite: the case database, written beside the report
};
