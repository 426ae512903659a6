#include "support/run_ravel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

extern char** environ;

namespace testsupport {

std::string ravel_binary() { return RAVEL_BINARY; }

std::string real_fixtures_dir() {
    std::string dir = std::string(RAVEL_SHARED_DIR) + "/fixtures/real";
    struct stat st {};
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return "";
    return dir;
}

run_result run_ravel(const std::vector<std::string>& args, const std::string& input,
                     const std::vector<std::string>& env, const std::string& cwd) {
    std::vector<std::string> argv_text;
    argv_text.push_back(ravel_binary());
    argv_text.insert(argv_text.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& a : argv_text) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    // Environment: the parent's, TZ pinned, then the caller's overrides.
    std::vector<std::string> env_text;
    auto name_of = [](const std::string& kv) { return kv.substr(0, kv.find('=')); };
    std::vector<std::string> overrides = {"TZ=UTC"};
    overrides.insert(overrides.end(), env.begin(), env.end());
    for (char** e = environ; *e; ++e) {
        std::string kv = *e;
        bool replaced = false;
        for (auto& o : overrides) replaced = replaced || name_of(o) == name_of(kv);
        if (!replaced) env_text.push_back(kv);
    }
    for (auto& o : overrides) {
        bool later = false;  // the last override of a name wins
        for (auto& o2 : overrides) later = later || (&o2 > &o && name_of(o2) == name_of(o));
        if (!later) env_text.push_back(o);
    }
    std::vector<char*> envp;
    for (auto& e : env_text) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);

    int in_pipe[2], out_pipe[2], err_pipe[2];
    run_result result;
    if (pipe(in_pipe) || pipe(out_pipe) || pipe(err_pipe)) return result;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in_pipe[0], 0);
        dup2(out_pipe[1], 1);
        dup2(err_pipe[1], 2);
        for (int fd : {in_pipe[0], in_pipe[1], out_pipe[0], out_pipe[1], err_pipe[0], err_pipe[1]}) close(fd);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(in_pipe[0]);
    close(out_pipe[1]);
    close(err_pipe[1]);
    fcntl(in_pipe[1], F_SETFL, O_NONBLOCK);

    size_t written = 0;
    bool in_open = true;
    if (input.empty()) {
        close(in_pipe[1]);
        in_open = false;
    }
    bool out_open = true, err_open = true;
    char buf[65536];
    while (out_open || err_open) {
        pollfd fds[3];
        int n = 0;
        int out_i = -1, err_i = -1, in_i = -1;
        if (out_open) { fds[n] = {out_pipe[0], POLLIN, 0}; out_i = n++; }
        if (err_open) { fds[n] = {err_pipe[0], POLLIN, 0}; err_i = n++; }
        if (in_open) { fds[n] = {in_pipe[1], POLLOUT, 0}; in_i = n++; }
        if (poll(fds, n, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        auto drain = [&](int i, int fd, std::string& to, bool& open) {
            if (i < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) return;
            ssize_t got = read(fd, buf, sizeof buf);
            if (got > 0) to.append(buf, static_cast<size_t>(got));
            else open = false;
        };
        drain(out_i, out_pipe[0], result.out, out_open);
        drain(err_i, err_pipe[0], result.err, err_open);
        if (in_i >= 0 && (fds[in_i].revents & (POLLOUT | POLLERR | POLLHUP))) {
            ssize_t put = write(in_pipe[1], input.data() + written, input.size() - written);
            if (put > 0) written += static_cast<size_t>(put);
            if (put < 0 || written == input.size()) {
                close(in_pipe[1]);
                in_open = false;
            }
        }
    }
    if (in_open) close(in_pipe[1]);
    close(out_pipe[0]);
    close(err_pipe[0]);
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    if (WIFEXITED(wstatus)) result.status = WEXITSTATUS(wstatus);
    else if (WIFSIGNALED(wstatus)) result.status = 128 + WTERMSIG(wstatus);
    return result;
}

temp_dir::temp_dir() {
    const char* base = std::getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/ravel-test-XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data())) path_ = buf.data();
}

temp_dir::~temp_dir() {
    if (path_.empty()) return;
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "";
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool write_file(const std::string& path, const std::string& bytes) {
    std::error_code ec;
    auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) std::filesystem::create_directories(parent, ec);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

std::string after_preamble(const std::string& report) {
    size_t at = report.find("\n\n");
    return at == std::string::npos ? report : report.substr(at + 2);
}

}  // namespace testsupport
