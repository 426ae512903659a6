// Date and time text: hv::time to a date text and a time text, and the readers of date options.
// The writers always show the UTC calendar (`fields`), never `local_tm`.
#pragma once
#include <cstdint>
#include <locale>
#include <memory>
#include <string>
#include <vector>

#include "foundation/hv_time.h"

// The two templates in digested form; stored by the option table, read by nothing.
struct date_layout {
    uint32_t flags = 0;
    uint16_t first_year = 1900;
    uint16_t last_year = 2600;
    uint32_t digits = 0;
    void clear() { *this = date_layout(); }
};

// Ordinary road: templates are searched for known words ("yyyy", "yy", "mm", "mmm", "dd",
// "hh:mm", "ss", "xxx...") and the texts are built in a fixed order. False if `t` is not valid.
bool format_date_time_template(std::string& date_text, std::string& time_text, const hv::time& t,
                               const std::string& date_template, const std::string& time_template);

// The locale road: the date text in the short form of `date_locale` (a null locale takes the fixed
// form yyyy-mm-dd), the time text as hh:mm:ss.mmm. Both empty when `t` is not valid.
void format_date_time_in_locale(std::string& date_text, std::string& time_text, const hv::time& t,
                                const std::locale* date_locale);

// The two texts of a report stamp, as format_date_time_template (or, with `use_locale`,
// format_date_time_in_locale) gives them for an hv::time of that stamp, made without building
// one for the usual stamps: the date text is kept by day, the time text written from the tick count.
// The locale is looked up once, when the formatter is made. One per run.
struct date_plan;
struct time_plan;

class stamp_formatter {
public:
    // The two texts of one stamp, valid until the formatter's next call.
    struct texts {
        const char* date = "";
        size_t date_size = 0;
        const char* time = "";
        size_t time_size = 0;
    };

    stamp_formatter(const std::string& date_template, const std::string& time_template, bool use_locale);
    ~stamp_formatter();
    stamp_formatter(const stamp_formatter&) = delete;
    stamp_formatter& operator=(const stamp_formatter&) = delete;

    // A FILETIME stamp; false, both texts empty, when it is no date.
    bool filetime(uint64_t ticks, texts& out);
    // A DOS pair taken as UTC; false, both texts empty, when it is no date.
    bool dos(const hv::dos_pair& pair, texts& out);
    // The same into strings.
    bool filetime(uint64_t ticks, std::string& date_text, std::string& time_text);
    bool dos(const hv::dos_pair& pair, std::string& date_text, std::string& time_text);

private:
    // The date text of one day (a FILETIME's day number, or a DOS date word).
    struct day_text {
        uint64_t key = UINT64_MAX;
        bool whole = true;  // the text fits; a longer locale text takes the whole road
        uint8_t size = 0;
        char text[38];
    };
    static constexpr size_t cache_slots = 16, locale_cache_slots = 4096;

    // The texts through a whole hv::time, for every stamp the short roads don't take.
    bool full(const hv::time& t, texts& out);
    void time_text_of(const hv::time_fields& f, texts& out);
    void fill_day(day_text& slot, uint64_t key, const hv::time_fields& f);
    // The date text of a day counted from 1601-01-01; false when it takes the whole road.
    bool date_of_day(uint64_t day, texts& out);

    std::string date_template_, time_template_;
    std::unique_ptr<date_plan> date_plan_;
    std::unique_ptr<time_plan> time_plan_;
    bool use_locale_;
    bool have_locale_ = false;
    bool dates_by_day_ = false;  // a date text depends on the day alone (not so for a locale that shows the time)
    std::locale date_locale_;
    // Recent days' texts: the stamps of a row, and of rows near it, often fall on one day. With a
    // locale, whose texts are slow to make, many more are kept.
    std::vector<day_text> days_;
    char time_[32];
    std::string full_date_, full_time_;
};

// The host's date locale: the default (name ""), else %LC_TIME%, else %LANG%; true with the name of
// the first that builds, false with an empty name. -locale asks it once, the locale road per date.
bool find_date_locale(std::string& name);

bool parse_date_time_format(date_layout* out, const std::string& date_template,
                            const std::string& time_template, bool pair_datetime);

// Readers of -cmd_start_time and -cmd_stop_time values. `order` is like "YMD" or "DMonY".
bool parse_date_time_text(const char* date, const char* time, const std::string& order, char separator,
                          hv::_windows_systemtime* out);
bool parse_date_text(const char* text, std::string order, char separator, uint32_t* day, uint32_t* month,
                     uint32_t* year);
bool parse_time_text(const char* text, uint32_t* hour, uint32_t* minute, double* second);
