// measure RESULT_FILE COMMAND [ARGS...]: runs the command (standard streams inherited) and writes
// "<wall seconds> <peak resident KiB> <exit status>" to RESULT_FILE. Used by bench/run_bench, so
// the bench needs neither /usr/bin/time nor its two-digit clock.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: measure RESULT_FILE COMMAND [ARGS...]\n");
        return 2;
    }
    timespec start{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    pid_t child = fork();
    if (child < 0) return 2;
    if (child == 0) {
        execvp(argv[2], argv + 2);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child) return 2;
    clock_gettime(CLOCK_MONOTONIC, &end);
    double wall = double(end.tv_sec - start.tv_sec) + double(end.tv_nsec - start.tv_nsec) / 1e9;
    int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);

    FILE* result = std::fopen(argv[1], "w");
    if (!result) return 2;
    std::fprintf(result, "%.6f %ld %d\n", wall, usage.ru_maxrss, code);  // ru_maxrss is in KiB on Linux
    return std::fclose(result) == 0 ? 0 : 2;
}
