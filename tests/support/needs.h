// What a test needs from outside the project: the real containers beside it, or a tool. Without it
// the test skips and says why; under CI=true it fails instead, so that CI can't pass by skipping.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <string>

namespace testsupport {

inline bool ci_run() {
    const char* ci = std::getenv("CI");
    return ci != nullptr && std::string(ci) == "true";
}

// "" when every command is on PATH; otherwise what is missing and which Debian package brings it.
inline std::string missing_tools(std::initializer_list<const char*> commands, const std::string& package) {
    std::string missing;
    for (const char* command : commands)
        if (std::system(("command -v " + std::string(command) + " >/dev/null 2>&1").c_str()) != 0)
            missing += (missing.empty() ? "" : ", ") + std::string(command);
    return missing.empty() ? "" : missing + " not installed (Debian package " + package + ")";
}

}  // namespace testsupport

// Skips the test with `missing` as the reason unless it is empty; fails it instead under CI=true.
#define RAVEL_NEEDS(missing)                                                              \
    do {                                                                                  \
        const std::string ravel_missing_ = (missing);                                     \
        if (ravel_missing_.empty()) break;                                                \
        if (testsupport::ci_run()) FAIL() << ravel_missing_ << " (required under CI=true)"; \
        GTEST_SKIP() << ravel_missing_;                                                   \
    } while (0)
