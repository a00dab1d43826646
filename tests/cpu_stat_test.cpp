// CPU usage: decoding the table, the arithmetic of usages, the report.
#include "cpu_stat_manager.h"
#include "manager_support.h"

#include <cmath>

namespace {
// The figures of every row after decoding: usr, sys, iowait, irq, sirq, usage.
std::string decoded(cpus_stats_parser& parser, const std::string& text) {
    EXPECT_EQ(parser.parse_cpu_stats(payload_area(text)), 1);
    std::ostringstream rows;
    for (const auto& stat : *parser.last_stats) {
        rows << "|" << stat->cpu;
        for (double figure : {stat->user_ratio, stat->sys_ratio, stat->iowait_ratio,
                              stat->irq_ratio, stat->sirq_ratio, stat->cpu_usage})
            rows << " " << figure;
    }
    return rows.str();
}
} // namespace

TEST(cpu_usage, is_measured_against_the_sample_before) {
    auto after = [](const std::string& second) {
        cpus_stats_parser parser;
        decoded(parser, "cpu  100 10 100 1000 50 5 5 2 9 9\n");
        return decoded(parser, second);
    };
    expect_each(
        after,
        {{"all columns", "cpu 150 10 130 1100 60 10 5 7 9 9 1 2", "|cpu 25 15 5 2.5 0 50"},
         {"a guest's time is the user's already", "cpu 200 10 100 1000 50 5 5 2 900 900",
          "|cpu 100 0 0 0 0 100"},
         {"user time runs backwards", "cpu 50 10 100 1100 50 5 5 2 9 9", "|cpu -100 0 0 0 0 -100"},
         {"columns are missing", "cpu 1088 10 100 1000 50",
          "|cpu 101.23 0 0 -0.512295 -0.512295 100"},
         {"idle time runs backwards and wraps", "cpu 200 10 100 950 50 5 5 2",
          "|cpu 200 0 0 0 0 -3.68935e+19"},
         {"time of waiting runs backwards and wraps", "cpu 200 10 100 1000 40 5 5 2",
          "|cpu 111.111 0 2.04964e+19 0 0 100"}});
    EXPECT_NE(after("cpu  100 10 100 1000 50 5 5 2").find("nan"), std::string::npos);
    // Lines of CPUs are paired by position.
    cpus_stats_parser parser;
    auto next = [&parser](const std::string& text) { return decoded(parser, text); };
    expect_each(
        next, {{"only lines that start with cpu",
                "intr 1\n\ncp\ncpu 8\nctxt 9\ncpu0 4\n cpu1 4\ncpufreq x\n",
                "|cpu 0 0 0 0 0 0|cpu0 0 0 0 0 0 0|cpufreq 0 0 0 0 0 0"},
               {"the third is compared with the third, a fourth with nothing",
                "cpu 16\ncpu0 8\ncpu1 8\ncpu2 8",
                "|cpu 100 0 0 0 0 100|cpu0 100 0 0 0 0 100|cpu1 100 0 0 0 0 100|cpu2 0 0 0 0 0 0"},
               {"fewer lines than before", "cpu 24\n", "|cpu 100 0 0 0 0 100"},
               {"nothing", "", ""}});
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
