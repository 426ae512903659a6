// The date and time texts: the readers of the time-bound options and the template writer with
// any templates. Input: a u64 raw time value, one byte choosing its kind, then NUL-separated
// texts: date, time, field order, separator, date template, time template.
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/hv_date_text.h"
#include "foundation/hv_time.h"
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 9 || size > 4096) return 0;
    uint64_t raw = 0;
    for (int i = 0; i < 8; ++i) raw |= uint64_t{data[i]} << (8 * i);
    static const uint32_t kinds[] = {hv::kind_filetime, hv::kind_unix};
    const uint8_t choice = data[8];
    std::vector<std::string> texts = fuzzsupport::split_at_nul(data + 9, size - 9);
    texts.resize(6);
    const char separator = texts[3].empty() ? '-' : texts[3][0];

    hv::time t;
    t.set_value(raw, kinds[choice % (sizeof(kinds) / sizeof(kinds[0]))]);
    std::string date_text, time_text;
    format_date_time_template(date_text, time_text, t, texts[4], texts[5]);
    format_date_time_in_locale(date_text, time_text, t, nullptr);
    date_layout layout;
    parse_date_time_format(&layout, texts[4], texts[5], raw & 8);

    hv::_windows_systemtime st;
    if (parse_date_time_text(texts[0].c_str(), texts[1].empty() ? nullptr : texts[1].c_str(), texts[2], separator,
                             &st)) {
        hv::filetime_pair pair;
        hv::systemtime_to_filetime(&pair, &st);
    }
    uint32_t day = 0, month = 0, year = 0, hour = 0, minute = 0;
    double second = 0;
    parse_date_text(texts[0].c_str(), texts[2], separator, &day, &month, &year);
    parse_time_text(texts[1].c_str(), &hour, &minute, &second);
    return 0;
}
