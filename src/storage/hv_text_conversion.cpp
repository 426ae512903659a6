#include "storage/hv_text_conversion.h"

namespace uni {

namespace {

utf8_locale start_up_locale;

}  // namespace

bool utf8_to_wide(std::wstring& out, const std::string& in) {
    out.clear();
    if (in.empty()) return false;
    out.reserve(in.size());
    size_t i = 0;
    const size_t n = in.size();
    while (i < n) {
        uint32_t lead = static_cast<uint8_t>(in[i]);
        uint32_t code = 0;
        size_t more = 0;
        if (lead < 0x80) {
            code = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            code = lead & 0x1F;
            more = 1;
        } else if ((lead & 0xF0) == 0xE0) {
            code = lead & 0x0F;
            more = 2;
        } else if ((lead & 0xF8) == 0xF0) {
            code = lead & 0x07;
            more = 3;
        } else {
            return false;
        }
        if (more > n - i - 1) return false;
        for (size_t k = 1; k <= more; ++k) {
            uint32_t next = static_cast<uint8_t>(in[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3F);
        }
        out.push_back(static_cast<wchar_t>(code));
        i += more + 1;
    }
    return true;
}

std::wstring wide_of(const std::string& in) {
    std::wstring out;
    if (!utf8_to_wide(out, in)) out.clear();
    return out;
}

bool wide_to_utf8(std::string& out, const std::wstring& in) {
    out.clear();
    if (in.empty()) return false;
    out.reserve(in.size());
    for (wchar_t w : in) {
        uint32_t c = static_cast<uint32_t>(w);
        if (c <= 0x7F) {
            out.push_back(static_cast<char>(c));
        } else if (c <= 0x7FF) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c <= 0xFFFF) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c <= 0x10FFFF) {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            break;  // not a code point: keep what came before, silently
        }
    }
    return true;
}

std::string narrow_of(const std::wstring& in) {
    std::string out;
    wide_to_utf8(out, in);
    return out;
}

}  // namespace uni
