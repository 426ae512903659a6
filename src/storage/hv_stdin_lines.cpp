#include "storage/hv_stdin_lines.h"

#include <new>

#include "storage/hv_text_conversion.h"

namespace uni {

stdin_stream::stdin_stream(bool flag_in) : flag(flag_in) { open(stdin); }

stdin_stream::~stdin_stream() = default;

bool stdin_stream::open(FILE* source) {
    stream = source;
    if (stream == nullptr) return ok = false;
    if (line.size() != static_cast<size_t>(line_size)) {
        try {
            line.assign(static_cast<size_t>(line_size), 0);
        } catch (const std::bad_alloc&) {
            return ok = false;
        }
    }
    return ok = true;
}

bool stdin_stream::read(std::string& out, bool strip) {
    out.clear();
    if (!ok || stream == nullptr) return false;
    if (fgets(line.data(), line_size, stream) == nullptr) return false;
    out.assign(line.data());
    if (strip) {
        while (!out.empty() && (out.back() == '\r' || out.back() == '\n')) out.pop_back();
    }
    return true;
}

bool stdin_stream::read(std::wstring& out, bool strip) {
    out.clear();
    std::string narrow;
    if (!stdin_stream::read(narrow, strip)) return false;
    utf8_to_wide(out, narrow);  // a bad byte keeps what came before it
    return true;
}
}  // namespace uni
