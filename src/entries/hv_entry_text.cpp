#include "entries/hv_entry_text.h"

#include <cstring>

#include "foundation/hv_string.h"

bool starts_with_date_range(const std::string& url) {
    if (url.size() < 18 || url[0] != ':' || url[17] != ':') return false;
    for (size_t i = 1; i < 17; ++i)
        if (url[i] < '0' || url[i] > '9') return false;
    return true;
}

void clean_field(std::string& text) {
    trim_whitespace(text);
    // Most fields hold none of the three: a fast search finds the first, or else the end of the text,
    // where it stops; a field that holds a NUL is looked at byte by byte from there on.
    char* p = &text[0];
    for (size_t i = std::strcspn(p, ",\r\n"), n = text.size(); i < n; ++i) {
        const char c = p[i];
        const char comma_or_lf = (c == ',' || c == '\n') ? ';' : c;
        p[i] = c == '\r' ? ' ' : comma_or_lf;
    }
}
