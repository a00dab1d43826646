// Decoding by the parsers, and with the standard library's streams, of the same text.
#include "client.h"
#include "stream_way.h"
#include "texts.h"

#include <benchmark/benchmark.h>

namespace {
unsigned char* payload(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

void cpu_table_ours(benchmark::State& state) {
    std::string text = cpu_table(static_cast<int>(state.range(0)));
    cpus_stats_parser parser;
    for (auto _ : state)
        benchmark::DoNotOptimize(parser.parse_cpu_stats(payload(text)));
}
void cpu_table_stream(benchmark::State& state) {
    const std::string text = cpu_table(static_cast<int>(state.range(0)));
    cpus_stats_parser parser;
    for (auto _ : state)
        stream_way::cpus(text, parser);
}
BENCHMARK(cpu_table_ours)->Arg(9)->Arg(33)->Arg(100);
BENCHMARK(cpu_table_stream)->Arg(9)->Arg(33)->Arg(100);

void interrupts_ours(benchmark::State& state) {
    const std::string text = interrupt_table(64, 300);
    interrupt_parser parser;
    for (auto _ : state) {
        parser.interrupts = std::make_unique<std::vector<std::shared_ptr<interrupt>>>();
        benchmark::DoNotOptimize(parser.parse_int(text));
    }
}
void interrupts_stream(benchmark::State& state) {
    const std::string text = interrupt_table(64, 300);
    interrupt_parser parser;
    for (auto _ : state)
        stream_way::interrupts(text, parser);
}
BENCHMARK(interrupts_ours)->Unit(benchmark::kMicrosecond);
BENCHMARK(interrupts_stream)->Unit(benchmark::kMicrosecond);

void process_status_ours(benchmark::State& state) {
    std::string text = process_status();
    process_stat_parser parser(1, 2);
    for (auto _ : state)
        benchmark::DoNotOptimize(parser.parse_process_stat(payload(text), 1));
}
void process_status_stream(benchmark::State& state) {
    const std::string text = process_status();
    process_stat_parser parser(1, 2);
    for (auto _ : state) {
        auto sample = std::make_unique<process_stat>();
        stream_way::status(text, *sample);
        parser.cal_process_usage(sample.get(), 1);
        parser.last_process_stat = std::move(sample);
    }
}
BENCHMARK(process_status_ours);
BENCHMARK(process_status_stream);

void process_io_ours(benchmark::State& state) {
    std::string text = process_io_text();
    process_io_parser parser(1);
    for (auto _ : state)
        benchmark::DoNotOptimize(parser.parse_process_io(payload(text), 1000));
}
void process_io_stream(benchmark::State& state) {
    const std::string text = process_io_text();
    process_io_parser parser(1);
    for (auto _ : state) {
        auto sample = std::make_unique<process_io>();
        stream_way::io(text, *sample);
        parser.cal_process_io_usage(sample.get(), 1000);
        parser.last_pio = std::move(sample);
    }
}
BENCHMARK(process_io_ours);
BENCHMARK(process_io_stream);

void memory_ours(benchmark::State& state) {
    std::string text = memory_text();
    meminfo_parser parser;
    for (auto _ : state)
        benchmark::DoNotOptimize(parser.parse_meminfo(payload(text)));
}
void memory_stream(benchmark::State& state) {
    const std::string text = memory_text();
    meminfo_parser parser;
    for (auto _ : state)
        stream_way::memory(text, parser.mem);
}
BENCHMARK(memory_ours);
BENCHMARK(memory_stream);
} // namespace
