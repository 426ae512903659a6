// What is found out about the host: the date locale of -locale, the operating-system text of the
// report's run line, and the host's product version. Every look-up fails in silence.
#pragma once
#include <cstdint>
#include <sstream>
#include <string>

class cmd_params;

struct os_version_info {
    bool valid = false;     // uname succeeded
    bool is_64bit = false;  // the machine text holds "64"
    std::string os_name = "macOS";
    std::string os_version;
    std::string os_release;
    std::string node_name;
    bool short_release = false;  // cut the release behind the first digit after its last dot
    std::string program_path;
    std::string program_stem;  // between the path's last '/' and the first '_' behind it
    uint64_t extra_value = 0;  // shown in hexadecimal when not 0

    void clear() { *this = os_version_info(); }
};

// Fills `info` from uname; false (os_name "macOS", nothing else) when uname fails.
bool fill_os_version_info(os_version_info& info, const std::string& program_path);

// Writes the operating-system text into `out` (emptied first): name, [node,] version, release,
// "64"/"32", [path,] [extra]. Each piece has `separator` replaced by `replacement`.
void write_os_text(const os_version_info& info, std::ostringstream& out, const std::string& separator,
                   const std::string& replacement, bool with_node, bool with_path);

// Reads the host product version (host_os_version and its numbers). Silent when the file is
// absent, as on every host but macOS.
void read_host_product_version(cmd_params& params);
void read_host_product_version(cmd_params& params, const std::string& plist_path);

// The text step of the above, for a file already in memory.
void parse_host_product_version(cmd_params& params, const std::string& plist_text);
