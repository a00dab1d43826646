// What recording a report costs, transactions included, and how fast a recording is read.
#include "recording.h"
#include "recording_source.h"
#include "sqlite.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <iostream>
#include <unistd.h>

namespace {
using namespace tools;

constexpr int week_seconds = 7 * 86400;
const std::chrono::system_clock::time_point start{std::chrono::seconds(1800000000)};

/// A file that is removed at the end.
struct bench_file {
    bench_file() { std::filesystem::create_directory(folder); }
    ~bench_file() { std::filesystem::remove_all(folder); }
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("moncl_bench_" + std::to_string(getpid()));
    const std::string path = folder / "bench.db";
};

// Every counter of every CPU changes at each second.
sample cpus_at(int second, unsigned cpus) {
    sample figures;
    figures.time = start + std::chrono::seconds(second);
    figures.seconds = second;
    const auto grown = static_cast<unsigned>(second);
    for (unsigned cpu = 0; cpu < cpus; ++cpu)
        figures.add(std::to_string(cpu), 90 * grown + cpu, grown, 7 * grown, 20 * grown, 3 * grown,
                    grown, 2 * grown, grown + cpu, grown, grown);
    return figures;
}

// Compare CPU times: writing itself waits for the disk.
void recording_500_values(benchmark::State& state) {
    const bench_file file;
    const std::string host = "board";
    const subject& cpu = *find_subject("cpu");
    recording to(file.path, {}, std::cerr);
    int second = 0;
    for (auto _ : state) {
        const sample figures = cpus_at(++second, 50);
        to.show({cpu, host, figures, {}});
        to.end_report(host, second, false);
    }
    to.finish();
    state.counters["bytes_a_tick"] =
        static_cast<double>(std::filesystem::file_size(file.path)) / second;
}

/// A week of two CPUs and their total, made once.
const bench_file& week() {
    static const bench_file file;
    static const bool made = [] {
        recording to(file.path, {}, std::cerr);
        const std::string host = "board";
        for (int second = 0; second < week_seconds; ++second) {
            const sample figures = cpus_at(second, 3);
            to.show({*find_subject("cpu"), host, figures, {}});
            to.end_report(host, second, false);
        }
        return true;
    }();
    static_cast<void>(made);
    return file;
}

constexpr const char* hour_from = "1800300000000";

void hour_of_week_by_sql(benchmark::State& state) {
    const auto file = open_recording(week().path);
    for (auto _ : state) {
        statement ask(*file,
                      std::string("SELECT time, user_seconds FROM cpu WHERE cpu = '0' AND time "
                                  ">= ") +
                          hour_from + " AND time < " + hour_from + " + 3600000");
        std::size_t rows = 0;
        while (ask.step())
            ++rows;
        if (rows != 3600)
            state.SkipWithError("not an hour of rows");
    }
}

void hour_of_week_replayed(benchmark::State& state) {
    replay_plan plan;
    plan.subjects = {find_subject("cpu")};
    plan.chosen.cpus = {"0"};
    plan.since = read_time("2027-01-18T19:20:00Z");
    plan.until = read_time("2027-01-18T20:19:59Z");
    for (auto _ : state) {
        recording_source from(week().path, "board", plan);
        report got;
        std::size_t reports = 0;
        while (from.next(got))
            reports += got.answers[0].figures.rows.size();
        if (reports != 3600)
            state.SkipWithError("not an hour of reports");
    }
}

BENCHMARK(recording_500_values)->Unit(benchmark::kMicrosecond);
BENCHMARK(hour_of_week_by_sql)->Unit(benchmark::kMillisecond);
BENCHMARK(hour_of_week_replayed)->Unit(benchmark::kMillisecond);
} // namespace
