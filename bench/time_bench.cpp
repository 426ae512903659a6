// Cost of one report timestamp: FILETIME -> hv::time -> date text and time text under the
// default templates. A report row makes up to four of these.
#include <benchmark/benchmark.h>

#include <string>

#include "foundation/hv_date_text.h"
#include "foundation/hv_time.h"

namespace {

const std::string date_template = "yyyy-mm-dd";
const std::string time_template = "hh:mm:ss.xxx";

void filetime_to_text(benchmark::State& state) {
    uint64_t ticks = 130703799091234567ull;   // 2015-03-09 13:05:09.1234567
    std::string date, time;                    // reused, as the row writer does
    for (auto _ : state) {
        const hv::time t(ticks, hv::kind_filetime);
        format_date_time_template(date, time, t, date_template, time_template);
        benchmark::DoNotOptimize(date.data());
        benchmark::DoNotOptimize(time.data());
        ticks += 37 * hv::ticks_per_second + 1234567;   // a new stamp every time
    }
}
BENCHMARK(filetime_to_text);

void filetime_to_time_value(benchmark::State& state) {
    uint64_t ticks = 130703799091234567ull;
    for (auto _ : state) {
        const hv::time t(ticks, hv::kind_filetime);
        benchmark::DoNotOptimize(t.fields.year);
        ticks += 37 * hv::ticks_per_second + 1234567;
    }
}
BENCHMARK(filetime_to_time_value);

void template_writer(benchmark::State& state) {
    const hv::time t(uint64_t(130703799091234567ull), hv::kind_filetime);
    std::string date, time;
    for (auto _ : state) {
        format_date_time_template(date, time, t, date_template, time_template);
        benchmark::DoNotOptimize(date.data());
        benchmark::DoNotOptimize(time.data());
    }
}
BENCHMARK(template_writer);

}  // namespace

BENCHMARK_MAIN();
