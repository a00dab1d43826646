// CPU usage: decoding the table, the arithmetic of usages, the report.
#include "cpu_stat_manager.h"

#include "log_capture.h"
#include "scripted_server.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace {
int parse(cpus_stats_parser& parser, std::string text) {
    return parser.parse_cpu_stats(reinterpret_cast<unsigned char*>(text.data()));
}

std::string row(cpus_stats_parser& parser, std::size_t i) {
    std::ostringstream out;
    parser.show_all_times(parser.last_stats->at(i), out);
    return out.str();
}
} // namespace

TEST(cpus_stats_parser, computes_usages_against_the_sample_before) {
    const std::string first = "cpu  100 10 100 1000 50 5 5 2 9 9\n";
    const double huge = std::pow(2.0, 64);
    const struct {
        const char* name;
        std::string second;
        std::uint64_t delta;
        double usage, iowait, sys, user, irq, sirq;
    } cases[] = {
        {"plain", "cpu 150 10 130 1100 60 10 5 7 9 9", 200, 50, 5, 15, 25, 2.5, 0},
        {"guest does not count", "cpu 200 10 100 1000 50 5 5 2 900 900", 100, 100, 0, 0, 100, 0, 0},
        {"idle runs backwards", "cpu 200 10 100 950 50 5 5 2 9 9", 50, (1 - (huge - 50) / 50) * 100,
         0, 0, 200, 0, 0},
        {"iowait runs backwards", "cpu 200 10 100 1000 40 5 5 2 9 9", 90, 100,
         (huge - 10) / 90 * 100, 0, 100.0 / 90 * 100, 0, 0},
        {"user runs backwards", "cpu 50 10 100 1100 50 5 5 2 9 9", 50, -100, 0, 0, -100, 0, 0},
        {"short line", "cpu 1100 10 100 1000 50", 988, 100, 0, 0, 1000.0 / 988 * 100,
         -5.0 / 988 * 100, -5.0 / 988 * 100},
        {"extra numbers", "cpu 150 10 130 1100 60 10 5 7 9 9 1 2 3", 200, 50, 5, 15, 25, 2.5, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        cpus_stats_parser parser;
        ASSERT_EQ(parse(parser, first), 1);
        EXPECT_EQ(row(parser, 0),
                  "cpu   0.00  %   0.00  %   0.00  %   0.00  %   0.00  %   0.00  %");
        ASSERT_EQ(parse(parser, c.second), 1);
        const cpu_stat& s = *parser.last_stats->at(0);
        EXPECT_EQ(s.total_delta, c.delta);
        EXPECT_DOUBLE_EQ(s.cpu_usage, c.usage);
        EXPECT_DOUBLE_EQ(s.iowait_ratio, c.iowait);
        EXPECT_DOUBLE_EQ(s.sys_ratio, c.sys);
        EXPECT_DOUBLE_EQ(s.user_ratio, c.user);
        EXPECT_DOUBLE_EQ(s.irq_ratio, c.irq);
        EXPECT_DOUBLE_EQ(s.sirq_ratio, c.sirq);
        EXPECT_EQ(parser.stats, nullptr);
    }
    cpus_stats_parser parser;
    parse(parser, first);
    parse(parser, first);
    EXPECT_EQ(parser.last_stats->at(0)->total_delta, 0U);
    EXPECT_TRUE(std::isnan(parser.last_stats->at(0)->cpu_usage));
    EXPECT_TRUE(std::isnan(parser.last_stats->at(0)->user_ratio));
}

TEST(cpus_stats_parser, takes_cpu_lines_only_and_pairs_them_by_position) {
    cpus_stats_parser parser;
    ASSERT_EQ(parse(parser, "intr 1 2\n\ncp\ncpu 8\nctxt 9\ncpu0 4\n cpu1 4\ncpufreq x\n"), 1);
    ASSERT_EQ(parser.last_stats->size(), 3U);
    EXPECT_EQ(parser.last_stats->at(2)->cpu, "cpufreq");
    EXPECT_EQ(parser.last_stats->at(2)->user, 0U);
    ASSERT_EQ(parse(parser, "cpu 16\ncpu0 8\ncpu1 8\ncpu2 8\n"), 1); // a CPU came online
    EXPECT_EQ(parser.last_stats->at(2)->user_ratio, 100);
    EXPECT_EQ(parser.last_stats->at(3)->total_delta, 0U);
    ASSERT_EQ(parse(parser, "cpu 24\ncpu0 16\n"), 1); // and two went
    EXPECT_EQ(parser.last_stats->size(), 2U);
    ASSERT_EQ(parse(parser, ""), 1);
    EXPECT_TRUE(parser.last_stats->empty());
    EXPECT_THROW(parser.parse_cpu_stats(nullptr), std::logic_error);
}

// The plain standard-library way, for comparison.
TEST(cpus_stats_parser, reads_what_streams_read) {
    std::mt19937_64 random(3);
    const char* const words[] = {"cpu", "cpu7", "-", "12x", "18446744073709551616", "-1", "\t", ""};
    for (int i = 0; i < 3000; ++i) {
        std::string text;
        for (int line = 0; line < 5; ++line) {
            text += random() % 4 != 0 ? "cpu" : "";
            for (auto n = random() % 14; n > 0; --n)
                text += random() % 9 != 0 ? " " + std::to_string(random() >> random() % 64)
                                          : std::string(" ") + words[random() % std::size(words)];
            text += "\n";
        }
        cpus_stats_parser parser;
        parse(parser, text);
        std::istringstream lines(text);
        std::size_t record = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.substr(0, 3) != "cpu")
                continue;
            cpu_stat e;
            std::istringstream(line) >> e.cpu >> e.user >> e.nice >> e.system >> e.idle >>
                e.iowait >> e.irq >> e.softirq >> e.steal >> e.guest >> e.guest_nice;
            const cpu_stat& s = *parser.last_stats->at(record++);
            ASSERT_EQ(std::tie(s.cpu, s.user, s.nice, s.system, s.idle, s.iowait, s.irq, s.softirq,
                               s.steal, s.guest, s.guest_nice),
                      std::tie(e.cpu, e.user, e.nice, e.system, e.idle, e.iowait, e.irq, e.softirq,
                               e.steal, e.guest, e.guest_nice))
                << line;
        }
        ASSERT_EQ(record, parser.last_stats->size());
    }
}

TEST(cpu_stat_manager, reports_usage_of_every_cpu) {
    scripted_server server;
    cpu_stat_manager manager(server.connect());
    server.next_text(1, "cpu 0 0 0 0\ncpu0 0 0 0 0\n");
    server.next_text(1, "cpu 125 0 0 875\ncpu0 100 0 0 0\n");
    EXPECT_EQ(manager.cpus_num, 6);
    EXPECT_EQ(manager.get_cpu_usage(nullptr), 0);
    EXPECT_EQ(manager.cpus_num, 2);
    std::ostringstream out;
    EXPECT_EQ(manager.get_cpu_usage(&out), 0);
    EXPECT_EQ(out.str(), "CPU   usr       sys       iowait    irq       sirq      usage     \n"
                         "cpu   12.50 %   0.00  %   0.00  %   0.00  %   0.00  %   12.50 %\n"
                         "cpu0  100.00%   0.00  %   0.00  %   0.00  %   0.00  %   100.00%\n");
    // A table that fills the payload has no NUL of its own.
    server.next_text(1, "cpu 1" + std::string(8192 - 5, '1'));
    EXPECT_EQ(manager.get_cpu_usage(nullptr), 0);
    EXPECT_EQ(manager.cpu_parser->last_stats->at(0)->user, ~0UL);
    close_at_once(*manager.client);
}
