#include "foundation/hv_date_text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <sstream>

#include "foundation/hv_string.h"

// What a date template asks for. The template is searched for known words only; the text is
// built in a fixed order from them.
struct date_plan {
    char sep = '/';
    bool complete = false;     // "yy", "mm" and "dd" are all there
    bool year_first = false;   // the year word stands at position 0
    bool day_first = false;    // "mm" is not before "dd"
    bool month_name = false;
    bool comma = false;        // behind the day, in the month-first order
    bool short_year = false;
};

struct time_plan {
    bool hour_minute = false;
    bool second = false;
    size_t digits = 0;   // from the first "xxx" to the last x; 0 without "xxx"
};

namespace {

const char* const month_names[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

constexpr size_t npos = std::string::npos;

// Writes `value` in exactly `width` digits with leading zeros (higher digits are cut, as with
// a fixed field); answers the end.
char* put_digits(char* p, uint64_t value, int width) {
    static const char pairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    int i = width;
    for (; i >= 2; i -= 2) {
        std::memcpy(p + i - 2, pairs + 2 * (value % 100), 2);
        value /= 100;
    }
    if (i == 1) p[0] = static_cast<char>('0' + value % 10);
    return p + width;
}

bool holds(const std::string& s, const char* word) { return s.find(word) != npos; }

tm tm_of(const hv::time_fields& f) {
    tm t{};
    t.tm_mon = f.month - 1;
    t.tm_mday = f.day;
    t.tm_year = f.year - 1900;
    t.tm_hour = f.hour;
    t.tm_min = f.minute;
    t.tm_sec = f.second;
    return t;
}

std::string locale_date(const std::locale& loc, const tm& t) {
    std::ostringstream os;
    os.imbue(loc);
    std::use_facet<std::time_put<char>>(loc).put(std::ostreambuf_iterator<char>(os), os, ' ', &t, 'x');
    return os.str();
}

// Count of characters from the first "xxx" to the last x, or 0 without "xxx".
size_t fraction_digits(const std::string& time_template) {
    const size_t first = time_template.find("xxx");
    if (first == npos) return 0;
    return time_template.rfind('x') - first + 1;
}

date_plan plan_date(const std::string& tpl) {
    date_plan p;
    bool comma_rule = false;
    if (holds(tpl, "/")) {
        p.sep = '/';
    } else if (holds(tpl, "-")) {
        p.sep = '-';
    } else if (holds(tpl, " ")) {
        p.sep = ' ';
        comma_rule = true;
    }
    const size_t y = tpl.find("yy"), m = tpl.find("mm"), d = tpl.find("dd"), n = tpl.find("mmm");
    p.month_name = n != npos;
    p.comma = comma_rule && d != npos && d > (n != npos ? n : m) && tpl.find(',', d) != npos;
    p.short_year = !holds(tpl, "yyyy") && y != npos;
    p.complete = y != npos && m != npos && d != npos;
    p.year_first = y == 0;
    p.day_first = m >= d;
    return p;
}

time_plan plan_time(const std::string& tpl) {
    time_plan p;
    p.hour_minute = holds(tpl, "hh:mm");
    p.second = holds(tpl, "ss");
    p.digits = fraction_digits(tpl);
    return p;
}

// The templates change once per run at most, and the writer runs four times per row: the
// plan of the last template is kept.
template <class Plan>
const Plan& cached_plan(const std::string& tpl, Plan (*make)(const std::string&)) {
    thread_local std::string last_template;
    thread_local Plan plan;
    thread_local bool known = false;
    if (!known || tpl != last_template) {
        plan = make(tpl);
        last_template = tpl;
        known = true;
    }
    return plan;
}

size_t write_date(char* out, const hv::time_fields& f, const date_plan& plan) {
    char month[3];
    size_t month_len = 0;
    if (!plan.month_name) {
        put_digits(month, f.month, 2);
        month_len = 2;
    } else if (f.month >= 1 && f.month <= 12) {
        const char* name = month_names[f.month - 1];
        month[0] = name[0];
        month[1] = name[1];
        month[2] = name[2];
        month_len = 3;
    }
    char day[2];
    put_digits(day, f.day, 2);
    char year[4];
    put_digits(year, f.year, 4);
    const char* year_text = plan.short_year ? year + 2 : year;
    const size_t year_len = plan.short_year ? 2 : 4;

    char* p = out;
    auto add = [&p](const char* s, size_t len) {
        for (size_t i = 0; i < len; ++i) *p++ = s[i];
    };
    if (plan.complete) {
        if (plan.year_first) {
            add(year_text, year_len);
            *p++ = plan.sep;
        }
        if (plan.day_first) {
            add(day, 2);
            *p++ = plan.sep;
            add(month, month_len);
        } else {
            add(month, month_len);
            *p++ = plan.sep;
            add(day, 2);
            if (plan.comma) *p++ = ',';
        }
        if (!plan.year_first) {
            *p++ = plan.sep;
            add(year_text, year_len);
        }
    } else {
        // A word is missing: the fixed road, with "/" whatever the separator was.
        add(month, month_len);
        *p++ = '/';
        add(day, 2);
        *p++ = '/';
        add(year_text, year_len);
    }
    return static_cast<size_t>(p - out);
}

size_t write_time(char* out, const hv::time_fields& f, const time_plan& plan) {
    char* p = out;
    if (plan.hour_minute && plan.second && plan.digits == 3) {  // the default "hh:mm:ss.xxx"
        put_digits(p, f.hour, 2);
        p[2] = ':';
        put_digits(p + 3, f.minute, 2);
        p[5] = ':';
        put_digits(p + 6, f.second, 2);
        p[8] = '.';
        put_digits(p + 9, f.milliseconds, 3);
        return 12;
    }
    if (plan.hour_minute) {
        p = put_digits(p, f.hour, 2);
        *p++ = ':';
        p = put_digits(p, f.minute, 2);
    }
    if (plan.second) {
        *p++ = ':';
        p = put_digits(p, f.second, 2);
    }
    const size_t c = plan.digits;
    if (c >= 3 && c <= 9) {
        static const uint64_t divisor[10] = {0, 0, 0, 0, 100, 10, 1, 100, 10, 1};
        const uint64_t value = c == 3 ? f.milliseconds : c <= 6 ? f.microseconds / divisor[c] : f.nanoseconds / divisor[c];
        *p++ = '.';
        p = put_digits(p, value, static_cast<int>(c));
    }
    return static_cast<size_t>(p - out);
}

bool locale_builds(const std::string& name) {
    try {
        std::locale loc(name.c_str());
        return true;
    } catch (...) {
        return false;
    }
}

std::map<std::string, uint32_t>& month_map() {
    static std::map<std::string, uint32_t> map;
    if (map.empty()) {
        for (uint32_t i = 0; i < 12; ++i) {
            std::string name = month_names[i];
            map[to_lower(name)] = i + 1;
        }
    }
    return map;
}

bool lookup_month(std::string field, uint32_t* month) {
    const auto& map = month_map();
    const auto it = map.find(to_lower(field));
    if (it == map.end()) return false;
    *month = it->second;
    return true;
}

bool read_by_letter(char letter, const std::string& field, uint32_t* day, uint32_t* month, uint32_t* year) {
    switch (letter) {
    case 'D': return parse_uint_text(field.c_str(), day);
    case 'Y': return parse_uint_text(field.c_str(), year);
    case 'M': return parse_uint_text(field.c_str(), month);
    default: return false;
    }
}

// End of a field that stops at the letter before "m" (as in "pm"), and back over a blank.
size_t end_before_meridiem(const std::string& s, size_t m, size_t start) {
    size_t end = m - 1;
    if (end > start && s[end - 1] == ' ') --end;
    return end;
}

// atof of a field, truncated to an int. NaN, infinity and values beyond an int have no such
// reading: the text then does not read, as for any bad value.
bool read_truncated(const std::string& field, int* value) {
    const double v = std::atof(field.c_str());
    if (!(v > -2147483649.0 && v < 2147483648.0)) return false;
    *value = static_cast<int>(v);
    return true;
}

}  // namespace

bool format_date_time_template(std::string& date_text, std::string& time_text, const hv::time& t,
                               const std::string& date_template, const std::string& time_template) {
    date_text.clear();
    time_text.clear();
    if (!t.valid) return false;
    char buf[32];
    if (!date_template.empty())
        date_text.assign(buf, write_date(buf, t.fields, cached_plan(date_template, plan_date)));
    if (!time_template.empty())
        time_text.assign(buf, write_time(buf, t.fields, cached_plan(time_template, plan_time)));
    return true;
}

void format_date_time_in_locale(std::string& date_text, std::string& time_text, const hv::time& t,
                                const std::locale* date_locale) {
    date_text.clear();
    time_text.clear();
    if (!t.valid) return;
    const hv::time_fields& f = t.fields;
    char buf[30];
    if (date_locale) {
        date_text = locale_date(*date_locale, tm_of(f));
    } else {
        std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", f.year, f.month, f.day);
        date_text = buf;
    }
    std::snprintf(buf, sizeof buf, "%02d:%02d:%02d.%03d", f.hour, f.minute, f.second, f.milliseconds);
    time_text = buf;
}

bool find_date_locale(std::string& name) {
    name.clear();
    if (locale_builds(name)) return true;
    // An unset variable leaves "%LC_TIME%" as it stands, which is then no good name.
    name = expand_path_text("%LC_TIME%", false);
    if (locale_builds(name)) return true;
    name = expand_path_text("%LANG%", false);
    if (locale_builds(name)) return true;
    name.clear();
    return false;
}

bool parse_date_time_format(date_layout* out, const std::string& date_template, const std::string& time_template,
                            bool pair_datetime) {
    out->clear();
    out->flags = pair_datetime ? 0x10000 : 0;
    if (!date_template.empty()) {
        if (holds(date_template, "/"))
            out->flags |= '/';
        else if (holds(date_template, "-"))
            out->flags |= '-';
        else if (holds(date_template, " "))
            out->flags |= ' ';
        size_t m;
        if ((m = date_template.find("mmm")) != npos)
            out->flags |= 0x100;
        else if ((m = date_template.find("mm")) != npos)
            out->flags |= 0x200;
        else
            return false;
        size_t y;
        if ((y = date_template.find("yyyy")) != npos)
            out->flags |= 0x400;
        else if ((y = date_template.find("yy")) != npos)
            out->flags |= 0x800;
        else
            return false;
        if (holds(date_template, ",")) out->flags |= 0x1000;
        const size_t d = date_template.find("dd");
        if (d == npos) return false;
        if (d < m && m < y)
            out->flags |= 0x2000;
        else if (m < d && d < y)
            out->flags |= 0x4000;
        else if (y < m && m < d)
            out->flags |= 0x8000;
        else
            return false;
    }
    if (!time_template.empty()) {
        const size_t c = fraction_digits(time_template);
        if (c) out->flags |= static_cast<uint32_t>(c > 9 ? 9 : c) << 17;
    }
    return true;
}

bool parse_date_time_text(const char* date, const char* time, const std::string& order, char separator,
                          hv::_windows_systemtime* out) {
    uint32_t day = 0, month = 0, year = 0, hour = 0, minute = 0;
    double seconds = 0;
    if (!date || !*date) return false;
    if (!parse_date_text(date, order, separator, &day, &month, &year)) return false;
    if (time && *time && !parse_time_text(time, &hour, &minute, &seconds)) return false;
    // The whole seconds go to a 16-bit field: a time with more, or below zero, does not read.
    if (!(seconds >= 0 && seconds < 65536)) return false;
    *out = hv::_windows_systemtime();
    out->year = static_cast<uint16_t>(year);
    out->month = static_cast<uint16_t>(month);
    out->day = static_cast<uint16_t>(day);
    out->hour = static_cast<uint16_t>(hour);
    out->minute = static_cast<uint16_t>(minute);
    const double whole = static_cast<double>(static_cast<int64_t>(seconds));
    out->second = static_cast<uint16_t>(whole);
    // The one place that rounds: 59.9996 gives second 59 and 1000 milliseconds.
    out->milliseconds = static_cast<uint16_t>((seconds - whole) * 1000.0 + 0.5);
    return true;
}

bool parse_date_text(const char* text, std::string order, char separator, uint32_t* day, uint32_t* month,
                     uint32_t* year) {
    *day = *month = *year = 0;
    if (order.size() < 3 || !text) return false;
    std::istringstream in(text);
    std::string field;
    if (!std::getline(in, field, separator)) return false;
    const size_t mon = order.find("Mon");
    to_upper(order);
    const size_t upper_mon = order.find("MON");
    if (upper_mon != npos) order.replace(upper_mon, 3, "M");
    if (order.size() < 3) return false;

    if (mon == 0) {
        if (!lookup_month(field, month)) return false;
    } else if (!read_by_letter(order[0], field, day, month, year)) {
        return false;
    }

    for (int i = 0; i < 3; ++i) {   // doubled separators are skipped
        if (!std::getline(in, field, separator)) return false;
        if (!field.empty()) break;
    }
    if (mon != npos && mon > 0) {
        if (!lookup_month(field, month)) return false;
    } else if (!read_by_letter(order[1], field, day, month, year)) {
        return false;
    }

    do {
        if (!std::getline(in, field, separator)) return false;
    } while (field.empty());
    if (!read_by_letter(order[2], field, day, month, year)) return false;

    if (*year < 100) *year += *year > 30 ? 1900 : 2000;
    // Month 0 and day 0 pass: they fold later in systemtime_to_filetime.
    return *month < 13 && *day < 32;
}

bool parse_time_text(const char* text, uint32_t* hour, uint32_t* minute, double* second) {
    *hour = *minute = 0;
    *second = 0;
    if (!text) return false;
    std::string s = text;
    trim_whitespace(s);
    to_lower(s);
    const size_t c1 = s.find(':');
    if (c1 == npos) return false;
    const size_t c2 = s.find(':', c1 + 1);
    const size_t m = s.find('m', c1 + 1);
    // "12:30 pm" gives hour 24, which carries into the next day.
    if (m != npos && s[m - 1] == 'p') *hour += 12;
    int whole = 0;
    if (!read_truncated(s.substr(0, c1), &whole)) return false;
    *hour += static_cast<uint32_t>(whole);

    const size_t start = c1 + 1;
    size_t end = c2 != npos ? c2 : m != npos ? end_before_meridiem(s, m, start) : s.size();
    if (end <= start || end - start >= 32) return false;
    if (!read_truncated(s.substr(start, end - start), &whole)) return false;
    *minute += static_cast<uint32_t>(whole);

    if (c2 != npos) {
        const size_t from = c2 + 1;
        end = m != npos && m > from ? end_before_meridiem(s, m, from) : s.size();
        *second = std::atof(end > from ? s.substr(from, end - from).c_str() : "");
        if (!std::isfinite(*second)) return false;
    }
    return true;
}

// ---- report stamps ---------------------------------------------------------------------------------

stamp_formatter::stamp_formatter(const std::string& date_template, const std::string& time_template,
                                 bool use_locale)
    : date_template_(date_template),
      time_template_(time_template),
      // The locale road writes its time, and its date when no locale builds, in these fixed forms.
      date_plan_(new date_plan(plan_date(use_locale ? "yyyy-mm-dd" : date_template))),
      time_plan_(new time_plan(plan_time(use_locale ? "hh:mm:ss.xxx" : time_template))),
      use_locale_(use_locale),
      days_(use_locale ? locale_cache_slots : cache_slots) {
    if (!use_locale_) {
        dates_by_day_ = true;  // templates read the date fields alone
        return;
    }
    std::string name;
    try {
        if (find_date_locale(name)) {
            date_locale_ = std::locale(name.c_str());
            have_locale_ = true;
        }
    } catch (...) {
        have_locale_ = false;
    }
    if (!have_locale_) {
        dates_by_day_ = true;  // the fixed form shows the date alone
        return;
    }
    // A date format that showed the time of day could not be kept by day.
    hv::time_fields f;
    f.year = 2015, f.month = 3, f.day = 9;
    const std::string midnight = locale_date(date_locale_, tm_of(f));
    f.hour = 23, f.minute = 59, f.second = 58;
    dates_by_day_ = locale_date(date_locale_, tm_of(f)) == midnight;
}

stamp_formatter::~stamp_formatter() = default;

bool stamp_formatter::full(const hv::time& t, texts& out) {
    full_date_.clear();
    full_time_.clear();
    if (t.valid) {
        if (use_locale_)
            format_date_time_in_locale(full_date_, full_time_, t, have_locale_ ? &date_locale_ : nullptr);
        else
            format_date_time_template(full_date_, full_time_, t, date_template_, time_template_);
    }
    out.date = full_date_.data();
    out.date_size = full_date_.size();
    out.time = full_time_.data();
    out.time_size = full_time_.size();
    return t.valid;
}

void stamp_formatter::time_text_of(const hv::time_fields& f, texts& out) {
    out.time = time_;
    out.time_size = use_locale_ || !time_template_.empty() ? write_time(time_, f, *time_plan_) : 0;
}

void stamp_formatter::fill_day(day_text& slot, uint64_t key, const hv::time_fields& f) {
    slot.key = key;
    slot.whole = true;
    slot.size = 0;
    if (use_locale_ && have_locale_) {
        const std::string text = locale_date(date_locale_, tm_of(f));
        slot.whole = text.size() <= sizeof slot.text;
        slot.size = static_cast<uint8_t>(std::min(text.size(), sizeof slot.text));
        std::copy(text.begin(), text.begin() + slot.size, slot.text);
    } else if (use_locale_ || !date_template_.empty()) {
        slot.size = static_cast<uint8_t>(write_date(slot.text, f, *date_plan_));
    }
}

bool stamp_formatter::date_of_day(uint64_t day, texts& out) {
    day_text& slot = days_[day % days_.size()];
    if (slot.key != day) {
        // The proleptic Gregorian calendar of the day, by whole eras, without a loop.
        const uint64_t z = day + 584694;  // days since 0000-03-01
        const uint64_t era = z / 146097, doe = z % 146097;
        const uint64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
        const uint64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
        const uint64_t mp = (5 * doy + 2) / 153;
        hv::time_fields f;
        f.day = static_cast<uint16_t>(doy - (153 * mp + 2) / 5 + 1);
        f.month = static_cast<uint16_t>(mp < 10 ? mp + 3 : mp - 9);
        f.year = static_cast<uint16_t>(yoe + era * 400 + (f.month <= 2 ? 1 : 0));
        fill_day(slot, day, f);
    }
    out.date = slot.text;
    out.date_size = slot.size;
    return slot.whole;
}

bool stamp_formatter::filetime(uint64_t ticks, texts& out) {
    // Stamps of these years are dates in every zone: the calendar is all that is needed.
    if (!hv::plain_date(ticks) || !dates_by_day_ || !date_of_day(ticks / hv::ticks_per_day, out))
        return full(hv::time(ticks, hv::kind_filetime), out);
    hv::time_fields f;
    const uint64_t second_of_day = ticks % hv::ticks_per_day / hv::ticks_per_second;
    const uint64_t fraction = ticks % hv::ticks_per_second;
    f.hour = static_cast<uint16_t>(second_of_day / 3600);
    f.minute = static_cast<uint16_t>(second_of_day / 60 % 60);
    f.second = static_cast<uint16_t>(second_of_day % 60);
    f.milliseconds = static_cast<uint16_t>(fraction / 10000);
    f.microseconds = fraction / 10;
    f.nanoseconds = fraction * 100;
    time_text_of(f, out);
    return true;
}

bool stamp_formatter::dos(const hv::dos_pair& pair, texts& out) {
    const unsigned date = pair.date_word, clock = pair.time_word;
    const unsigned day = date & 31, month = (date >> 5) & 15;
    hv::time_fields f;
    f.second = static_cast<uint16_t>((clock & 31) * 2);
    f.minute = static_cast<uint16_t>((clock >> 5) & 63);
    f.hour = static_cast<uint16_t>(clock >> 11);
    // The same refusals as hv::time's reading of a DOS pair; what passes them is a date of 1980 to 2107.
    if (day == 0 || month < 1 || month > 12 || f.second >= 60 || f.minute >= 60 || f.hour >= 24 ||
        !dates_by_day_) {
        return full(hv::time(&pair, true), out);
    }
    // The time word can't carry into the next day, so the date is the date word's alone, counted as
    // the time value's own reading counts it (2000 as a common year).
    tm midnight{};
    midnight.tm_mday = static_cast<int>(day);
    midnight.tm_mon = static_cast<int>(month) - 1;
    midnight.tm_year = static_cast<int>(date >> 9) + 80;
    if (!date_of_day(hv::tm_to_filetime(&midnight, 0) / hv::ticks_per_day, out)) return full(hv::time(&pair, true), out);
    time_text_of(f, out);
    return true;
}

bool stamp_formatter::filetime(uint64_t ticks, std::string& date_text, std::string& time_text) {
    texts t;
    const bool valid = filetime(ticks, t);
    date_text.assign(t.date, t.date_size);
    time_text.assign(t.time, t.time_size);
    return valid;
}

bool stamp_formatter::dos(const hv::dos_pair& pair, std::string& date_text, std::string& time_text) {
    texts t;
    const bool valid = dos(pair, t);
    date_text.assign(t.date, t.date_size);
    time_text.assign(t.time, t.time_size);
    return valid;
}
