// RFC 4180 records of a lossless report: quoted fields may hold the separator, quotes (doubled) and
// line ends.
#pragma once
#include <string>
#include <vector>

#include "support/run_ravel.h"

namespace testsupport {

using csv_record = std::vector<std::string>;

inline std::vector<csv_record> read_csv(const std::string& text, char separator = ',') {
    std::vector<csv_record> records;
    csv_record fields;
    std::string field;
    bool quoted = false, in_quotes = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (in_quotes) {
            if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
                field += '"';
                ++i;
            } else if (c == '"') {
                in_quotes = false;
            } else {
                field += c;
            }
        } else if (c == '"' && field.empty() && !quoted) {
            in_quotes = quoted = true;
        } else if (c == separator) {
            fields.push_back(field);
            field.clear();
            quoted = false;
        } else if (c == '\n') {
            fields.push_back(field);
            records.push_back(fields);
            fields.clear();
            field.clear();
            quoted = false;
        } else {
            field += c;
        }
    }
    return records;
}

// The rows of a -complete run's standard output, after its preamble and header row.
inline std::vector<csv_record> complete_rows(const std::string& out) {
    std::vector<csv_record> rows = read_csv(after_preamble(out));
    if (!rows.empty()) rows.erase(rows.begin());
    return rows;
}

}  // namespace testsupport
