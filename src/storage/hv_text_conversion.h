// UTF-8 and wide text: narrow strings hold UTF-8, wide strings one code point per 32-bit wchar_t.
// Every path passes through these on its way between the file object and the system call.
#pragma once
#include <cstdint>
#include <string>

static_assert(sizeof(wchar_t) == 4, "wide strings hold one code point per wchar_t");

namespace uni {

// UTF-8 to one code point per wchar_t. Overlong forms and surrogates pass as they come.
// False for empty input or a bad sequence; `out` keeps what was decoded before it.
bool utf8_to_wide(std::wstring& out, const std::string& in);
// Empty for empty or invalid input.
std::wstring wide_of(const std::string& in);
// Stops silently at the first code point of 0x110000 or above. False only for empty input.
bool wide_to_utf8(std::string& out, const std::wstring& in);
std::string narrow_of(const std::wstring& in);

// What uses it: nothing; one instance is made at start-up, as the file layer always had.
class utf8_locale {
public:
    virtual ~utf8_locale() = default;
    int32_t first = 0;
    int32_t second = 0;
};

}  // namespace uni

// Called unqualified across the program.
using uni::narrow_of;
using uni::utf8_to_wide;
using uni::wide_of;
using uni::wide_to_utf8;
