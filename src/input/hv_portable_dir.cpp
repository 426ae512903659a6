#include "input/hv_portable_dir.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstring>

#include "foundation/hv_string.h"
#include "storage/hv_text_conversion.h"

namespace hvportdir {

// ---- directory walker ---------------------------------------------------------------------------

bool list_folder(const std::string& path, std::vector<subdir_node>& out, int32_t level, bool dirs_only,
                 bool forward_slash) {
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) return false;
    const char separator = forward_slash ? '/' : '\\';
    bool stored = false;
    // lstat's answer is not looked at: after a failure the mode of the entry before stands.
    struct stat st;
    std::memset(&st, 0, sizeof st);
    while (struct dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        subdir_node node;
        node.path = path + name;
        lstat(node.path.c_str(), &st);  // links are not followed: a link to a folder is a file
        if ((st.st_mode & S_IFMT) == S_IFDIR) {
            node.path += separator;
            node.is_dir = true;
            node.level = level + 1;
        } else {
            if (dirs_only) continue;
            node.name = name;
            node.level = level;
        }
        out.push_back(std::move(node));
        stored = true;
    }
    closedir(dir);
    return stored;
}

bool expand_folder_wildcards(std::vector<std::string>& paths, bool forward_slash) {
    const std::string pattern = forward_slash ? "/*/" : "\\*\\";
    bool changed = false;
    const size_t count = paths.size();
    for (size_t i = 0; i < count; ++i) {
        size_t at = paths[i].find(pattern);
        if (paths[i].empty() || at == std::string::npos) continue;
        const std::string prefix = paths[i].substr(0, at + 1);
        const std::string rest = paths[i].substr(at + pattern.size());
        std::vector<subdir_node> found;
        if (list_folder(prefix, found, 0, true, forward_slash)) {
            paths[i] = found[0].path + rest;
            for (size_t k = 1; k < found.size(); ++k) paths.push_back(found[k].path + rest);
        } else {
            paths[i].clear();
        }
        changed = true;
    }
    return changed;
}

void enumerate_folder(const std::string& path, const std::string& wildcard, std::vector<subdir_node>& out) {
    out.clear();
    if (path.empty()) return;
    const bool forward_slash = path.find('/') != std::string::npos;
    const char separator = forward_slash ? '/' : '\\';
    std::string root = path;
    if (root.back() != separator) root += separator;

    std::vector<std::string> paths{root};
    while (expand_folder_wildcards(paths, forward_slash)) {
    }

    std::vector<subdir_node> listed;
    for (const std::string& p : paths) {
        if (p.empty()) continue;
        size_t star = p.find('*');
        list_folder(star == std::string::npos ? p : p.substr(0, star), listed, 0, false, forward_slash);
    }

    // The wildcard has no partial forms: its name and extension are each "*" or a whole word.
    std::string pattern = wildcard.empty() ? std::string("*.*") : wildcard;
    to_lower(pattern);
    std::string folder, want_name, want_ext;
    split_file_name(pattern, folder, want_name, want_ext);
    if (want_name.empty()) want_name = "*";
    if (want_ext.empty()) want_ext = "*";

    for (subdir_node& node : listed) {
        std::string name, ext;
        if (node.is_dir || !split_file_name(node.path, folder, name, ext)) {
            out.push_back(std::move(node));
            continue;
        }
        if (want_name != "*" && want_name != to_lower(name)) continue;
        if (want_ext != "*" && want_ext != to_lower(ext)) continue;
        out.push_back(std::move(node));
    }
}

void enumerate_folder_wide(const std::wstring& path, const std::wstring& wildcard,
                           std::vector<subdir_node_utf16>& out) {
    out.clear();
    std::vector<subdir_node> nodes;
    enumerate_folder(narrow_of(path), narrow_of(wildcard), nodes);
    out.reserve(nodes.size());
    for (const subdir_node& node : nodes) {
        subdir_node_utf16 wide;
        utf8_to_wide(wide.path, node.path);  // a bad byte keeps what came before it
        utf8_to_wide(wide.name, node.name);
        wide.is_dir = node.is_dir;
        wide.level = node.level;
        out.push_back(std::move(wide));
    }
}

// ---- input stream -------------------------------------------------------------------------------

stdin_stream_ex::stdin_stream_ex(const time_window* w) : uni::stdin_stream(false) {
    clear();
    window = w;
}

stdin_stream_ex::~stdin_stream_ex() = default;

void stdin_stream_ex::clear() {
    folders.clear();
    files.clear();
    max_level = 1;
    filters.clear();
    walking = false;
    // Both init calls come here, so a walk never sees the time bounds: its filter test has no
    // time window, and the driver's second test applies it.
    window = nullptr;
}

bool stdin_stream_ex::init_to_stdin(bool use_stdin) {
    clear();
    if (use_stdin)
        open(stdin);
    else
        ok = true;
    walking = false;
    return ok;
}

bool stdin_stream_ex::init_to_enumdir(const std::string& root, uint32_t levels,
                                      const std::vector<filename_filter>& list) {
    if (root.empty()) return false;
    std::wstring wide;
    utf8_to_wide(wide, root);
    return init_to_enumdir(wide, levels, list);
}

bool stdin_stream_ex::init_to_enumdir(const std::wstring& root, uint32_t levels,
                                      const std::vector<filename_filter>& list) {
    clear();
    max_level = levels;
    filters = list;
    std::wstring path = root;
    if (fixup_directory_or_file(path, true)) {
        folders.push_back(_folder_level{path, 0});
        ok = true;
        walking = true;
        return true;
    }
    return ok;
}

bool stdin_stream_ex::read(std::string& out, bool strip_eol) {
    if (!walking) return uni::stdin_stream::read(out, strip_eol);
    std::wstring wide;
    bool got = get_next_file(wide);
    wide_to_utf8(out, wide);
    return got;
}

bool stdin_stream_ex::read(std::wstring& out, bool strip_eol) {
    if (!walking) return uni::stdin_stream::read(out, strip_eol);
    return get_next_file(out);
}

bool stdin_stream_ex::get_next_file(std::wstring& out) {
    for (;;) {
        out.clear();
        // Files first: the whole of one folder goes out before any of its subfolders is listed,
        // so the queues hold one listing plus the folders still waiting.
        if (!files.empty()) {
            out = std::move(files.back());
            files.pop_back();
            return true;
        }
        if (folders.empty()) return false;

        bool found = false;
        _folder_level next;
        while (!folders.empty()) {
            next = std::move(folders.back());
            folders.pop_back();
            if (next.level <= max_level) {
                found = true;
                break;
            }
        }
        if (!found || !fixup_directory_or_file(next.folder, true)) continue;

        std::vector<subdir_node_utf16> nodes;
        enumerate_folder_wide(next.folder, L"*.*", nodes);
        for (subdir_node_utf16& node : nodes) {
            if (node.is_dir)
                folders.push_back(_folder_level{std::move(node.path), next.level + 1});
            else if (fixup_directory_or_file(node.path, false))
                files.push_back(std::move(node.path));
        }
    }
}

bool stdin_stream_ex::fixup_directory_or_file(std::wstring& path, bool is_folder) {
    if (!is_folder) {
        bool could_not_open = false;
        bool passes;
        if (window != nullptr) {
            file_stats stats;
            passes = filter_passes(*window, could_not_open, path, filters, &stats);
        } else {
            passes = filter_passes_plain(could_not_open, path, filters);
        }
        // A file that a signature item could not read goes on; the driver's test decides.
        if (!passes && !could_not_open) return false;
    }
    // "\\?\C:\..." loses its device prefix; the shadow-copy root ("\\?\GLOBALROOT...") keeps it.
    if (path.size() >= 5 && path[0] == L'\\' && path[1] == L'\\') {
        if (path.size() <= 46) {
            path.clear();
        } else {
            std::wstring lowered = path;
            to_lower_wide(lowered);
            if (lowered.compare(4, 6, L"global") != 0) path.erase(0, 4);
        }
    }
    return true;
}

}  // namespace hvportdir
