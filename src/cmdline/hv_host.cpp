#include "cmdline/hv_host.h"

#include <sys/utsname.h>

#include <vector>

#include "cmdline/hv_cmd_params.h"
#include "foundation/hv_string.h"
#include "storage/hv_fileio.h"

namespace {

const char product_version_plist[] = "/System/Library/CoreServices/SystemVersion.plist";

// A piece of the OS text must not break the line's form: the separator becomes the replacement.
std::string guarded(const std::string& piece, const std::string& separator, const std::string& replacement) {
    if (separator.empty()) return piece;
    std::string out;
    replace_all(out, piece, separator, replacement);
    return out.empty() ? piece : out;
}

}  // namespace

bool fill_os_version_info(os_version_info& info, const std::string& program_path) {
    info.clear();
    info.os_name = "macOS";
    utsname names{};
    if (uname(&names) != 0) {
        info.valid = false;
        return false;
    }
    info.os_name = names.sysname;
    info.os_version = names.version;
    info.os_release = names.release;
    info.node_name = names.nodename;
    std::string machine = names.machine;
    info.is_64bit = to_lower(machine).find("64") != std::string::npos;
    info.program_path = program_path;
    size_t slash = program_path.rfind('/');
    if (slash != std::string::npos) {
        size_t underscore = program_path.find('_', slash + 1);
        if (underscore != std::string::npos) info.program_stem = program_path.substr(slash + 1, underscore - slash - 1);
    }
    info.valid = true;
    return true;
}

void write_os_text(const os_version_info& info, std::ostringstream& out, const std::string& separator,
                   const std::string& replacement, bool with_node, bool with_path) {
    out.str("");
    out.clear();
    auto piece = [&](const std::string& text) { return guarded(text, separator, replacement); };
    out << piece(info.os_name) << separator;
    if (with_node) out << piece(info.node_name) << separator;
    out << piece(info.os_version) << separator;
    std::string release = info.os_release;
    if (info.short_release) {
        size_t dot = release.rfind('.');
        if (dot != std::string::npos) {
            size_t digit = release.find_first_of("0123456789", dot + 1);
            if (digit != std::string::npos && digit + 1 < release.size()) release.erase(digit + 1);
        }
    }
    out << piece(release) << separator;
    out << (info.is_64bit ? "64" : "32");
    if (with_path && !info.program_path.empty()) {
        std::string path = info.program_path;
        out << separator << piece(to_lower(path));
    }
    if (info.extra_value) out << separator << std::hex << info.extra_value << std::dec;
}

void parse_host_product_version(cmd_params& params, const std::string& text) {
    // A plain text search on purpose: the file is a property list, but one key is all we need.
    size_t key = text.find(">ProductVersion<");
    if (key == std::string::npos) return;
    size_t open = text.find("<string>", key + 16);
    if (open == std::string::npos) return;
    size_t start = open + 8;
    size_t end = text.find("</s", start);
    params.host_os_version = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (params.host_os_version.empty()) return;
    std::vector<std::string> pieces;
    split_list(params.host_os_version, '.', pieces);
    if (pieces.size() >= 1) parse_uint_text(pieces[0].c_str(), &params.host_os_major);
    if (pieces.size() >= 2) parse_uint_text(pieces[1].c_str(), &params.host_os_minor);
    if (pieces.size() >= 3) parse_uint_text(pieces[2].c_str(), &params.host_os_patch);
}

void read_host_product_version(cmd_params& params, const std::string& plist_path) {
    std::vector<uint8_t> bytes;
    if (!read_whole_file(bytes, plist_path, 0xFFFFFFFFu) || bytes.empty()) return;
    parse_host_product_version(params, std::string(bytes.begin(), bytes.end()));
}

void read_host_product_version(cmd_params& params) { read_host_product_version(params, product_version_plist); }
