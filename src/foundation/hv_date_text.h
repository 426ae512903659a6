// Date and time text: hv::time to a date text and a time text, and the readers of date options.
// The writers always show the UTC calendar (`fields`), never `local_tm`.
#pragma once
#include <cstdint>
#include <locale>
#include <string>

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

// Fixed printf road; with use_locale the date text comes from the date locale when one is found.
void format_date_time(std::string& date_text, std::string& time_text, const hv::time& t,
                      bool with_fraction, bool short_year, bool use_locale, bool nanoseconds);
void format_date_time_simple(std::string& date_text, std::string& time_text, const hv::time& t,
                             bool use_locale);
// The same with the locale given by the caller; a null locale takes the fixed date form.
void format_date_time_in_locale(std::string& date_text, std::string& time_text, const hv::time& t,
                                const std::locale* date_locale, bool with_fraction, bool short_year,
                                bool nanoseconds);

// The host's date locale: the default (name ""), else %LC_TIME%, else %LANG%; true with the name of
// the first that builds, false with an empty name. -locale asks it once, the locale road per date.
bool find_date_locale(std::string& name);

std::string month_name_text(int month);   // "Jan".."Dec", empty outside 1..12

bool parse_date_time_format(date_layout* out, const std::string& date_template,
                            const std::string& time_template, bool pair_datetime);

// Readers of -cmd_start_time and -cmd_stop_time values. `order` is like "YMD" or "DMonY".
bool parse_date_time_text(const char* date, const char* time, const std::string& order, char separator,
                          hv::_windows_systemtime* out);
bool parse_date_text(const char* text, std::string order, char separator, uint32_t* day, uint32_t* month,
                     uint32_t* year);
bool parse_time_text(const char* text, uint32_t* hour, uint32_t* minute, double* second);
