// Where the names of the list roads come from: lines of standard input (-pipe) or a walk of folders (-enumdir).
#pragma once
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "input/hv_name_filter.h"
#include "storage/hv_stdin_lines.h"


namespace hvportdir {

// One entry of a folder listing. A folder's path ends in the separator and its name is empty.
struct subdir_node {
    std::string path;
    std::string name;
    bool is_dir = false;
    int32_t level = 0;  // the lister's level for a file, plus 1 for a folder

    void clear() { *this = subdir_node(); }
    bool valid() const { return !path.empty(); }
};

struct subdir_node_utf16 {
    std::wstring path;
    std::wstring name;
    bool is_dir = false;
    int32_t level = 0;

    void clear() { *this = subdir_node_utf16(); }
    bool valid() const { return !path.empty(); }
};

// One folder waiting to be listed; the root is level 0.
struct _folder_level {
    std::wstring folder;
    uint32_t level = 0;
};

// Lists one folder (path ends in the separator), in the file system's order, without following links.
// True when at least one entry was stored.
bool list_folder(const std::string& path, std::vector<subdir_node>& out, int32_t level, bool dirs_only,
                 bool forward_slash);

// Replaces each path holding "/*/" (or "\*\") by one path per subfolder found there. True when anything changed.
bool expand_folder_wildcards(std::vector<std::string>& paths, bool forward_slash);

// Lists the folders that `path` stands for (stars allowed), keeping files that match `wildcard`
// ("*.*" when empty; "*" or a whole word for name and extension).
void enumerate_folder(const std::string& path, const std::string& wildcard, std::vector<subdir_node>& out);
void enumerate_folder_wide(const std::wstring& path, const std::wstring& wildcard,
                           std::vector<subdir_node_utf16>& out);

// The one source of names for the list roads. Both queues are used as stacks: the walk is depth-first,
// and the files of one folder come out, in reverse listing order, before any of its subfolders is listed.
class stdin_stream_ex : public uni::stdin_stream {
public:
    explicit stdin_stream_ex(const time_window* window);
    ~stdin_stream_ex() override;
    stdin_stream_ex(const stdin_stream_ex&) = delete;
    stdin_stream_ex& operator=(const stdin_stream_ex&) = delete;

    // Empties both queues, max_level := 1, drops the filters, walking := false, window := null.
    void clear();

    // -pipe: names are lines of standard input.
    bool init_to_stdin(bool use_stdin);

    // -enumdir: names are the files under `root`, down to `levels` folders below it.
    bool init_to_enumdir(const std::string& root, uint32_t levels, const std::vector<filename_filter>& filters);
    bool init_to_enumdir(const std::wstring& root, uint32_t levels, const std::vector<filename_filter>& filters);

    // The next name; false at the end. With `strip_eol` a line loses its trailing CR and LF.
    bool read(std::string& out, bool strip_eol) override;
    bool read(std::wstring& out, bool strip_eol) override;

    bool get_next_file(std::wstring& out);

    // Filters a file and rewrites a "\\" path; true when the name goes on.
    bool fixup_directory_or_file(std::wstring& path, bool is_folder);

private:
    std::deque<_folder_level> folders;
    std::deque<std::wstring> files;
    uint32_t max_level = 1;
    std::vector<filename_filter> filters;
    bool walking = false;
    const time_window* window = nullptr;
};

}  // namespace hvportdir
