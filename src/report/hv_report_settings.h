// How the run's report looks: made once from the options, then only read.
#pragma once
#include <cstdint>
#include <string>

// -timeline: the report is a timeline of the entries' stamps instead of rows.
enum class timeline_form : uint8_t { none, body, jsonl };

struct report_settings {
    std::string separator = ",";  // written between fields
    std::string date_format = "yyyy-mm-dd";
    std::string time_format = "hh:mm:ss.xxx";
    bool use_locale_format = false;  // -locale: dates as the host's locale writes them
    bool header = true;              // a header row goes ahead of the rows
    bool complete = false;           // -complete: the lossless CSV report
    timeline_form timeline = timeline_form::none;
};
