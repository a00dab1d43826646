// What a sample costs from a decoded answer to text: rates, then each form of output. Compare with
// the query that it comes from, `cpu_query_100`.
#include "output.h"
#include "rates.h"
#include "texts.h"

#include "client.h"

#include <benchmark/benchmark.h>

namespace {
using namespace tools;

// Two samples of 100 CPUs, as the subject makes them.
class cpu_samples {
public:
    cpu_samples() {
        for (sample* each : {&first, &second}) {
            each->seconds = each == &first ? 1 : 2;
            for (int i = 0; i < 101; ++i) {
                const auto cpu = static_cast<unsigned>(i);
                const unsigned more = each == &first ? 0 : cpu % 7 + 1;
                each->add(i == 0 ? "all" : std::to_string(i - 1), 9000000U + more, 20000U,
                          3000000U + more, 30000000U + 2 * more, 150000U, 1U, 300000U, 10000U, 1U,
                          1U);
            }
        }
    }
    sample first;
    sample second;
};

void cpu_rates(benchmark::State& state) {
    const cpu_samples samples;
    rate_former rates(*find_subject("cpu"));
    for (auto _ : state) {
        sample now = samples.second;
        rates.forget();
        sample before = samples.first;
        rates.compare(before);
        benchmark::DoNotOptimize(rates.compare(now));
    }
}

void cpu_output(benchmark::State& state, const char* name) {
    const cpu_samples samples;
    const subject& cpu = *find_subject("cpu");
    rate_former rates(cpu);
    sample before = samples.first;
    sample now = samples.second;
    rates.compare(before);
    rates.compare(now);
    writer text(-1);
    const std::string host = "localhost:5757";
    for (const output_form& form : all_outputs()) {
        if (std::string_view(form.name) != name)
            continue;
        const auto out = form.make({}, text);
        long reports = 0;
        for (auto _ : state) {
            out->show({cpu, host, now, 1.0});
            out->end_report(host, reports++, false);
            benchmark::DoNotOptimize(text.text.data());
            state.counters["bytes"] = static_cast<double>(text.text.size());
            text.text.clear();
        }
    }
}

BENCHMARK(cpu_rates)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(cpu_output, json, "json")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(cpu_output, table, "table")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(cpu_output, csv, "csv")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(cpu_output, openmetrics, "openmetrics")->Unit(benchmark::kMicrosecond);
} // namespace
