// Rules for an entry's texts that every reader follows, so that both kinds of cache read alike.
#pragma once
#include <string>

// Whether `url` opens with a date range, ":2013031020130311:", as a daily or weekly history URL does.
bool starts_with_date_range(const std::string& url);

// Keeps commas and line ends out of a report field: "," -> ";", trim, CR -> " ", LF -> ";".
void clean_field(std::string& text);
