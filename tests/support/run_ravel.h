// Runs the built ravel binary as a child process, for end-to-end tests.
#pragma once
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

struct run_result {
    std::string out;   // standard output
    std::string err;   // standard error
    int status = -1;   // exit status as the shell sees it (255 for -1), or 128+signal
};

// Runs ravel with `args` (argv[0] is added), feeding `input` on standard input.
// TZ is pinned to UTC; `env` adds or replaces further variables ("NAME=value").
// A non-empty `cwd` is the child's working directory; a non-empty `stdout_path` gets standard output
// in place of `out`, which then stays empty.
run_result run_ravel(const std::vector<std::string>& args, const std::string& input = "",
                     const std::vector<std::string>& env = {}, const std::string& cwd = "",
                     const std::string& stdout_path = "");

// A run watched for its cost: only the end of standard error is kept, the child is killed after
// `seconds` (a hang guard, not a measure), and its peak resident memory is taken.
struct bounded_result {
    std::string out;
    std::string err_tail;    // the last 4 KiB of standard error
    int status = -1;
    uint64_t peak_kib = 0;
    bool killed = false;
};
bounded_result run_ravel_bounded(const std::vector<std::string>& args, int seconds);

// Path of the built ravel binary.
std::string ravel_binary();

// Folder of the real sample containers beside the project, or "" when it is absent; why a test that
// needs it can't run, for RAVEL_NEEDS.
std::string real_fixtures_dir();
inline std::string missing_real_fixtures() {
    return real_fixtures_dir().empty() ? "../shared/fixtures/real is absent" : "";
}
// The index.dat of the real sample folder `name` ("Content.IE5", "History.IE5", "deleted").
inline std::string real_container(const std::string& name) { return real_fixtures_dir() + "/" + name + "/index.dat"; }

// A fresh empty folder under the system's temporary folder, removed by the destructor.
class temp_dir {
public:
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// Whole file as bytes; "" when it can't be read.
std::string read_file(const std::string& path);
// Writes bytes to a file, creating parent folders; false on failure.
bool write_file(const std::string& path, const std::string& bytes);

// Drops the report preamble: everything up to and including the first empty line.
std::string after_preamble(const std::string& report);

// Texts every road writes, spelled out here so that a change to them fails the tests.
inline const std::string header_row =
    "last mod date,last mod time,access date,access time,expires date,expires time,last sync date,"
    "last sync time,type,url,user,filename,file size,directory,count,HTTP header,index.dat filename\n";
inline const std::string short_erase = "\x1b[2K\r    \r", long_erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";

}  // namespace testsupport
