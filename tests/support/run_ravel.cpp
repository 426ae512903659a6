#include "support/run_ravel.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

extern char** environ;

namespace testsupport {

std::string ravel_binary() { return RAVEL_BINARY; }

std::string real_fixtures_dir() {
    std::string dir = std::string(RAVEL_SHARED_DIR) + "/fixtures/real";
    struct stat st {};
    return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? dir : "";
}

namespace {

// Starts ravel with `args` (argv[0] added), TZ pinned to UTC and `env` added; standard input from
// `in`, output to `out`, error to the descriptor `err`. Answers the child's pid, or -1.
pid_t spawn(const std::vector<std::string>& args, const std::vector<std::string>& env, const std::string& cwd,
            const std::string& in, const std::string& out, int err) {
    std::vector<std::string> argv_text = {ravel_binary()};
    argv_text.insert(argv_text.end(), args.begin(), args.end());
    std::map<std::string, std::string> vars;  // name -> "name=value"; later settings win
    auto set = [&vars](const std::string& kv) { vars[kv.substr(0, kv.find('='))] = kv; };
    for (char** e = environ; *e; ++e) set(*e);
    set("TZ=UTC");
    for (const auto& kv : env) set(kv);
    std::vector<std::string> env_text;
    for (const auto& v : vars) env_text.push_back(v.second);

    auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> p;
        for (auto& t : texts) p.push_back(const_cast<char*>(t.c_str()));
        p.push_back(nullptr);
        return p;
    };
    std::vector<char*> argv = pointers(argv_text), envp = pointers(env_text);
    pid_t pid = fork();
    if (pid == 0) {
        int fds[3] = {open(in.c_str(), O_RDONLY), open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), err};
        for (int i = 0; i < 3; ++i) dup2(fds[i], i);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    return pid;
}

int status_of(int wstatus) {
    if (WIFEXITED(wstatus)) return WEXITSTATUS(wstatus);
    return WIFSIGNALED(wstatus) ? 128 + WTERMSIG(wstatus) : -1;
}

}  // namespace

// Standard input, output and error go through files, so no pipe can fill up and stall the child.
run_result run_ravel(const std::vector<std::string>& args, const std::string& input,
                     const std::vector<std::string>& env, const std::string& cwd, const std::string& stdout_path) {
    temp_dir io;
    const std::string in = io.file("in"), err = io.file("err");
    const std::string out = stdout_path.empty() ? io.file("out") : stdout_path;
    write_file(in, input);
    const int err_fd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const pid_t pid = spawn(args, env, cwd, in, out, err_fd);
    close(err_fd);
    run_result result;
    int wstatus = 0;
    if (pid < 0 || waitpid(pid, &wstatus, 0) < 0) return result;
    result.status = status_of(wstatus);
    if (stdout_path.empty()) result.out = read_file(out);
    result.err = read_file(err);
    return result;
}

bounded_result run_ravel_bounded(const std::vector<std::string>& args, int seconds) {
    temp_dir io;
    const std::string in = io.file("in"), out = io.file("out");
    write_file(in, "");
    int pipe_fds[2];
    bounded_result result;
    if (pipe(pipe_fds) != 0) return result;
    const pid_t pid = spawn(args, {}, "", in, out, pipe_fds[1]);
    close(pipe_fds[1]);
    if (pid < 0) return result;
    // Standard error is drained as it comes: a huge empty disk prints gigabytes of percentage lines.
    const auto start = std::chrono::steady_clock::now();
    std::vector<char> chunk(1 << 16);
    for (ssize_t got; (got = read(pipe_fds[0], chunk.data(), chunk.size())) > 0;) {
        result.err_tail.append(chunk.data(), static_cast<size_t>(got));
        if (result.err_tail.size() > 4096) result.err_tail.erase(0, result.err_tail.size() - 4096);
        if (std::chrono::steady_clock::now() - start > std::chrono::seconds(seconds) && !result.killed) {
            kill(pid, SIGKILL);
            result.killed = true;
        }
    }
    close(pipe_fds[0]);
    int wstatus = 0;
    rusage usage{};
    if (wait4(pid, &wstatus, 0, &usage) != pid) return result;
    result.status = status_of(wstatus);
    result.peak_kib = static_cast<uint64_t>(usage.ru_maxrss);
    result.out = read_file(out);
    return result;
}

temp_dir::temp_dir() {
    const char* base = std::getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/ravel-test-XXXXXX";
    if (mkdtemp(templ.data())) path_ = templ;
}

temp_dir::~temp_dir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool write_file(const std::string& path, const std::string& bytes) {
    std::error_code ec;
    auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) std::filesystem::create_directories(parent, ec);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

std::string after_preamble(const std::string& report) {
    size_t at = report.find("\n\n");
    return at == std::string::npos ? report : report.substr(at + 2);
}

}  // namespace testsupport
