// CPU usage: decoding the table, the arithmetic of usages, the report.
#include "cpu_stat_manager.h"
#include "manager_support.h"

#include <cmath>

namespace {
// The figures of every row after decoding: usr, sys, iowait, irq, sirq, usage.
std::string decoded(cpus_stats_parser& parser, const std::string& text) {
    EXPECT_EQ(parser.parse_cpu_stats(payload_area(text).data()), 1);
    std::stringstream rows;
    std::string all;
    for (const auto& stat : *parser.last_stats) {
        parser.show_all_times(stat, rows);
        rows << " ";
    }
    for (std::string word; rows >> word;)
        all += word == "%" ? "" : word.substr(0, word.find('%')) + " ";
    return all;
}
} // namespace

TEST(cpu_usage, is_measured_against_the_sample_before) {
    const std::string first = "cpu  100 10 100 1000 50 5 5 2 9 9\n";
    const std::pair<const char*, const char*> seconds[] = {
        {"cpu 150 10 130 1100 60 10 5 7 9 9 1 2", "cpu 25.00 15.00 5.00 2.50 0.00 50.00 "},
        {"cpu 200 10 100 1000 50 5 5 2 900 900", "cpu 100.00 0.00 0.00 0.00 0.00 100.00 "},
        {"cpu 50 10 100 1100 50 5 5 2 9 9", "cpu -100.00 0.00 0.00 0.00 0.00 -100.00 "},
        {"cpu 1100 10 100 1000 50", "cpu 101.21 0.00 0.00 -0.51 -0.51 100.00 "},
        // Of counters that run backwards, idle and iowait wrap.
        {"cpu 200 10 100 950 50 5 5 2", "cpu 200.00 0.00 0.00 0.00 0.00 -36893488147419103232.00 "},
        {"cpu 200 10 100 1000 40 5 5 2",
         "cpu 111.11 0.00 20496382304121724928.00 0.00 0.00 100.00 "}};
    for (const auto& [second, figures] : seconds) {
        cpus_stats_parser parser;
        EXPECT_EQ(decoded(parser, first), "cpu 0.00 0.00 0.00 0.00 0.00 0.00 ");
        EXPECT_EQ(decoded(parser, second), figures);
    }
    cpus_stats_parser parser;
    decoded(parser, first);
    decoded(parser, first);
    EXPECT_TRUE(std::isnan(parser.last_stats->at(0)->cpu_usage));
    EXPECT_TRUE(std::isnan(parser.last_stats->at(0)->user_ratio));
}

TEST(cpu_usage, takes_cpu_lines_only_and_pairs_them_by_position) {
    const std::string none = " 0.00 0.00 0.00 0.00 0.00 0.00 ";
    const std::string all = " 100.00 0.00 0.00 0.00 0.00 100.00 ";
    const std::pair<std::string, std::string> samples[] = {
        {"intr 1\n\ncp\ncpu 8\nctxt 9\ncpu0 4\n cpu1 4\ncpufreq x\n",
         "cpu" + none + "cpu0" + none + "cpufreq" + none},
        {"cpu 16\ncpu0 8\ncpu1 8\ncpu2 8",
         "cpu" + all + "cpu0" + all + "cpu1" + all + "cpu2" + none},
        {"cpu 24\ncpu0 16\n", "cpu" + all + "cpu0" + all},
        {"", ""}};
    cpus_stats_parser parser;
    for (const auto& [text, figures] : samples)
        EXPECT_EQ(decoded(parser, text), figures);
    EXPECT_THROW(parser.parse_cpu_stats(nullptr), std::logic_error);
}

TEST(cpu_usage, report) {
    offline<cpu_stat_manager> m;
    EXPECT_EQ(m.cpus_num, 6);
    report(m, m.cpu_parser, 1, "cpu 0 0 0 0\ncpu0 0 0 0 0\n");
    EXPECT_EQ(report(m, m.cpu_parser, 1, "cpu 125 0 0 875\ncpu0 100 0 0 0\n"),
              "CPU   usr       sys       iowait    irq       sirq      usage     \n"
              "cpu   12.50 %   0.00  %   0.00  %   0.00  %   0.00  %   12.50 %\n"
              "cpu0  100.00%   0.00  %   0.00  %   0.00  %   0.00  %   100.00%\n");
    EXPECT_EQ(m.cpus_num, 2);
    report(m, m.cpu_parser, 1, "cpu 1" + std::string(8192, '1')); // no NUL of its own
    EXPECT_EQ(m.cpu_parser->last_stats->at(0)->user, ~0UL);
}
