// Text helpers on std::string (UTF-8 or ASCII) and std::wstring (one code point per wchar_t).
// Each works in place on its first argument, answers a small value, never throws and never prints.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace hv {

// Sixteen raw bytes, compared whole.
struct _16_byte_block {
    uint8_t bytes[16] = {};
    void clear();
    bool operator!=(const _16_byte_block& other) const;
    bool operator==(const _16_byte_block& other) const { return !(*this != other); }
};

}  // namespace hv

// trim
bool trim_whitespace(std::string& s);          // false if empty or only " \t\r\n"
bool trim_whitespace_wide(std::wstring& s);    // one class at a time: blanks, tabs, trailing CR, trailing LF

// case
std::string& to_lower(std::string& s);
void to_upper(std::string& s);
std::wstring& to_lower_wide(std::wstring& s);

// replace
void replace_char(std::string& s, char from, char to, bool ignore_case);
std::string& replace_all(std::string& out, const std::string& text, const std::string& find,
                         const std::string& with);
int remove_char(std::string& s, char c);

// path: the last "\" wins over any "/"; a separator only at position 0 does not split.
bool split_path(const std::string& path, std::string& folder, std::string& name);
bool split_path(const char* path, std::string& folder, std::string& name);
bool split_path_wide(const std::wstring& path, std::wstring& folder, std::wstring& name);
bool split_file_name(const char* path, std::string& folder, std::string& stem, std::string& extension);
inline bool split_file_name(const std::string& path, std::string& folder, std::string& stem,
                            std::string& extension) {
    return split_file_name(path.c_str(), folder, stem, extension);
}

// bytes: printable ASCII is copied, a NUL ends the walk, other bytes become `replacement`
// (dropped when it is 0).
bool copy_printable_text(std::string& out, const uint8_t* data, int count, bool keep_line_ends,
                         char replacement);

// number forms: "0x1F" / "x1F" hex, "o17" octal, decimal with leading digit or sign, "'A'".
bool parse_uint_text(const char* text, uint32_t* out);

// Signed forms, decided on a trimmed, lowered copy: hexadecimal after an 'x' anywhere, octal after an
// 'o' anywhere, else decimal when it starts with '+', '-' or a digit. False, `out` untouched, otherwise.
bool parse_signed_text(const std::string& text, int64_t& out);

// Cuts `text` at `separator`, pieces trimmed of blanks, tabs, CR and LF, empty ones dropped.
// False for an empty text.
bool split_list(const std::string& text, char separator, std::vector<std::string>& out);

// Splits at the first character of `separators` that occurs in `text`; when none occurs, or the
// split yields nothing, the whole text is the one piece.
void split_list_any(const std::string& text, const std::string& separators, std::vector<std::string>& out);

// %NAME% from the environment; with allow_vss, an unset %vss% becomes the shadow-copy device prefix.
std::string expand_path_text(std::string text, bool allow_vss);
