// Helpers shared by the fuzz targets: a private scratch folder and the splitting of an input
// into texts.
#pragma once
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace fuzzsupport {

// A folder of this process under $TMPDIR (or /tmp), made once; the only place a target writes.
// fuzz/run_smoke and fuzz/run_long point TMPDIR at a folder of their own and remove it afterwards.
inline const std::string& scratch_dir() {
    static const std::string dir = [] {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/ravel-fuzz-XXXXXX";
        std::vector<char> text(pattern.begin(), pattern.end());
        text.push_back('\0');
        if (!mkdtemp(text.data())) {
            std::perror("mkdtemp");
            std::abort();
        }
        return std::string(text.data());
    }();
    return dir;
}

// The input cut at every NUL; a trailing NUL gives a last empty piece.
inline std::vector<std::string> split_at_nul(const uint8_t* data, size_t size) {
    std::vector<std::string> pieces(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            pieces.emplace_back();
        } else {
            pieces.back().push_back(static_cast<char>(data[i]));
        }
    }
    return pieces;
}

}  // namespace fuzzsupport
