#include "foundation/hv_string.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <locale>

namespace hv {

void _16_byte_block::clear() { std::memset(bytes, 0, sizeof bytes); }

bool _16_byte_block::operator!=(const _16_byte_block& other) const {
    return std::memcmp(bytes, other.bytes, sizeof bytes) != 0;
}

}  // namespace hv

namespace {

// Locales built once, on first use, and kept to the end of the run.
const std::ctype<char>& lowering_facet() {
    static const std::locale loc;
    return std::use_facet<std::ctype<char>>(loc);
}

const std::ctype<char>& raising_facet() {
    static const std::locale loc;
    return std::use_facet<std::ctype<char>>(loc);
}

// One character class at a time; false when the string is left empty.
bool trim_one_wide(std::wstring& s, wchar_t c) {
    size_t first = s.find_first_not_of(c);
    if (first == std::wstring::npos) {
        s.clear();
        return false;
    }
    s.erase(s.find_last_not_of(c) + 1);
    s.erase(0, first);
    return true;
}

template <class S>
bool split_at(const S& path, size_t at, S& folder, S& name, const typename S::value_type* up) {
    folder.assign(path, 0, at);
    name.assign(path, at + 1, S::npos);
    if (name.size() == 2 && name[0] == '.' && name[1] == '.') {
        name.assign(1, '.');
        folder += up;
    }
    return true;
}

}  // namespace

// Blanks are " \t\r\n", tested byte by byte: this runs on every field of every row.
bool trim_whitespace(std::string& s) {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    size_t end = s.size();
    while (end > 0 && blank(s[end - 1])) --end;
    size_t start = 0;
    while (start < end && blank(s[start])) ++start;
    if (end != s.size()) s.erase(end);
    if (start != 0) s.erase(0, start);
    return !s.empty();
}

// Deliberately weaker than trim_whitespace: "\t x" keeps its blank, "x \n" keeps "x ".
bool trim_whitespace_wide(std::wstring& s) {
    if (!trim_one_wide(s, L' ')) return false;
    if (!trim_one_wide(s, L'\t')) return false;
    while (!s.empty() && s.back() == L'\r') s.pop_back();
    while (!s.empty() && s.back() == L'\n') s.pop_back();
    return true;
}

std::string& to_lower(std::string& s) {
    if (!s.empty()) lowering_facet().tolower(&s[0], &s[0] + s.size());
    return s;
}

void to_upper(std::string& s) {
    if (!s.empty()) raising_facet().toupper(&s[0], &s[0] + s.size());
}

std::wstring& to_lower_wide(std::wstring& s) {
    for (wchar_t& c : s) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return s;
}

void replace_char(std::string& s, char from, char to, bool ignore_case) {
    if (from == to) return;
    char set[3] = {from, 0, 0};
    if (ignore_case) {
        const unsigned char u = static_cast<unsigned char>(from);
        set[0] = static_cast<char>(std::tolower(u));
        char upper = static_cast<char>(std::toupper(u));
        if (upper != set[0]) set[1] = upper;
    }
    // One pass over the text: the written character is never one of those searched for (no caller
    // passes such a pair), so this finds what restarting after each write would find.
    const char other = set[1] ? set[1] : set[0];
    for (char& c : s) c = (c == set[0] || c == other) ? to : c;
}

std::string& replace_all(std::string& out, const std::string& text, const std::string& find,
                         const std::string& with) {
    out.clear();
    if (text.empty() || find.empty()) return out;
    out.reserve(text.size() + 256);
    size_t from = 0;
    for (size_t hit = text.find(find); hit != std::string::npos; hit = text.find(find, from)) {
        out.append(text, from, hit - from);
        out += with;
        from = hit + find.size();
    }
    out.append(text, from, std::string::npos);
    return out;
}

namespace {

template <class Text>
int remove_all_of(Text& s, typename Text::value_type c) {
    const size_t before = s.size();
    s.erase(std::remove(s.begin(), s.end(), c), s.end());
    return static_cast<int>(before - s.size());
}

}  // namespace

int remove_char(std::string& s, char c) { return remove_all_of(s, c); }

bool split_path(const std::string& path, std::string& folder, std::string& name) {
    folder.clear();
    name.clear();
    if (path.empty()) return false;
    const size_t back = path.rfind('\\');
    if (back != std::string::npos && back != 0) return split_at(path, back, folder, name, "\\..");
    if (back == std::string::npos) {
        const size_t slash = path.rfind('/');
        // Two slashes, as the folder of ".." has always been written.
        if (slash != std::string::npos && slash != 0) return split_at(path, slash, folder, name, "//..");
    }
    name = path;
    folder = ".";
    return true;
}

bool split_path(const char* path, std::string& folder, std::string& name) {
    if (!path) {
        folder.clear();
        name.clear();
        return false;
    }
    return split_path(std::string(path), folder, name);
}

bool split_path_wide(const std::wstring& path, std::wstring& folder, std::wstring& name) {
    if (path.empty()) return false;
    folder = L"";
    name = L"";
    const size_t back = path.rfind(L'\\');
    if (back != std::wstring::npos && back != 0) return split_at(path, back, folder, name, L"\\..");
    if (back == std::wstring::npos) {
        const size_t slash = path.rfind(L'/');
        if (slash != std::wstring::npos && slash != 0) return split_at(path, slash, folder, name, L"//..");
    }
    name = path;
    folder = L".";
    return true;
}

bool split_file_name(const char* path, std::string& folder, std::string& stem, std::string& extension) {
    folder.clear();
    stem.clear();
    extension.clear();
    if (!path || !*path) return false;
    std::string name;
    if (!split_path(path, folder, name)) return false;
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos) {
        stem = name;
    } else {
        stem.assign(name, 0, dot);
        extension.assign(name, dot + 1, std::string::npos);
    }
    return true;
}

bool copy_printable_text(std::string& out, const uint8_t* data, int count, bool keep_line_ends,
                         char replacement) {
    out.clear();
    if (!data || count <= 0) return false;
    const void* nul = std::memchr(data, 0, static_cast<size_t>(count));
    const size_t length = nul ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - data) : static_cast<size_t>(count);
    out.resize(length);  // an upper bound: only dropped bytes shorten it
    if (replacement && !keep_line_ends) {
        // Every byte gives one character: a plain map, which the compiler can widen. HTTP data of
        // every row passes here.
        char* to = &out[0];
        for (size_t i = 0; i < length; ++i) {
            const uint8_t b = data[i];
            to[i] = (b >= 0x20 && b <= 0x7E) ? static_cast<char>(b) : replacement;
        }
        return true;
    }
    size_t kept = 0;
    for (size_t i = 0; i < length; ++i) {
        const uint8_t b = data[i];
        const bool printable = (b >= 0x20 && b <= 0x7E) || (keep_line_ends && (b == '\n' || b == '\r'));
        out[kept] = printable ? static_cast<char>(b) : replacement;
        kept += (printable || replacement) ? 1 : 0;
    }
    out.resize(kept);
    return true;
}

bool parse_signed_text(const std::string& text, int64_t& out) {
    std::string copy = text;
    trim_whitespace(copy);
    to_lower(copy);
    const size_t x = copy.find('x'), o = copy.find('o');
    if (x != std::string::npos)
        out = std::strtoll(copy.c_str() + x + 1, nullptr, 16);
    else if (o != std::string::npos)
        out = std::strtoll(copy.c_str() + o + 1, nullptr, 8);
    else if (!copy.empty() && (copy[0] == '+' || copy[0] == '-' || std::isdigit(static_cast<unsigned char>(copy[0]))))
        out = std::strtoll(copy.c_str(), nullptr, 10);
    else
        return false;
    return true;
}

bool parse_uint_text(const char* text, uint32_t* out) {
    *out = 0;
    if (!text || !*text) return false;
    // The form is chosen on a cleaned copy; the number is read from the text as given.
    std::string copy = text;
    trim_whitespace(copy);
    to_lower(copy);
    if (copy.empty()) return false;
    unsigned long v;
    if (copy.size() >= 2 && copy[1] == 'x')
        v = std::strtoul(text + 2, nullptr, 16);
    else if (copy[0] == 'x')
        v = std::strtoul(text + 1, nullptr, 16);
    else if (copy[0] == 'o')
        v = std::strtoul(text + 1, nullptr, 8);
    else if (text[0] == '+' || text[0] == '-' || std::isdigit(static_cast<unsigned char>(text[0])))
        v = std::strtoul(text, nullptr, 10);
    else if (copy.size() == 3 && (text[0] == '\'' || text[0] == '"') && text[2] == text[0])
        v = static_cast<unsigned char>(text[1]);
    else
        return false;
    *out = static_cast<uint32_t>(v);
    return true;
}

std::string expand_path_text(std::string text, bool allow_vss) {
    static const char vss_prefix[] = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy";
    // A value is scanned in its turn; the bound on substitutions keeps a variable that names
    // itself from holding the run forever, since such a text need not grow.
    int substitutions = 0;
    size_t pos = 0;
    while (text.size() <= 512 && substitutions < 4096) {
        const size_t open = text.find('%', pos);
        if (open == std::string::npos) break;
        const size_t close = text.find('%', open + 1);
        if (close == std::string::npos) break;
        std::string word = text.substr(open + 1, close - open - 1);
        if (const char* value = std::getenv(word.c_str())) {
            text.replace(open, close - open + 1, value);
            ++substitutions;
            continue;
        }
        pos = close + 1;
        if (allow_vss && to_lower(word) == "vss") {
            text.replace(open, close - open + 1, vss_prefix);
            pos = open + sizeof vss_prefix - 1;
        }
    }
    return text;
}

bool split_list(const std::string& text, char separator, std::vector<std::string>& out) {
    out.clear();
    if (text.empty()) return false;
    size_t start = 0;
    while (true) {
        size_t end = text.find(separator, start);
        std::string piece = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (trim_whitespace(piece)) out.push_back(piece);
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return true;
}

void split_list_any(const std::string& text, const std::string& separators, std::vector<std::string>& out) {
    out.clear();
    for (char c : separators) {
        if (text.find(c) == std::string::npos) continue;
        if (split_list(text, c, out) && !out.empty()) return;
        break;
    }
    out.assign(1, text);
}
