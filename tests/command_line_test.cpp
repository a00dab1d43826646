// The command line and the schedule it gives.
#include "command_line.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>
#include <sstream>

using namespace std::chrono_literals;

namespace {
std::shared_ptr<tools::schedule> seen;

// A command that only keeps its schedule.
const tools::command_registration probe("probe", "Test command", [](CLI::App& app) {
    seen = tools::add_schedule(app);
    return tools::command_action([](tools::session&) { return 0; });
});

tools::invocation read(const std::string& line, std::string& out, std::string& err) {
    std::istringstream words(line);
    std::ostringstream out_stream, err_stream;
    const tools::invocation called = tools::read_command_line(
        {std::istream_iterator<std::string>(words), {}}, out_stream, err_stream);
    out = out_stream.str();
    err = err_stream.str();
    return called;
}
} // namespace

TEST(command_line, reads_interval_count_and_source) {
    const struct {
        const char* line;
        double interval;
        long count;
        const char* host;
        int port;
    } good[] = {
        {"probe", 0, 0, "", 0},
        {"probe 2", 2, 0, "", 0},
        {"probe 0.25 7", 0.25, 7, "", 0},
        {"probe -i 2 -n 3", 2, 3, "", 0},
        {"probe --interval=1.5 --count=1", 1.5, 1, "", 0},
        {"--connect board:9000 probe", 0, 0, "board", 9000},
        {"probe 1 --connect 10.0.0.7:1", 1, 0, "10.0.0.7", 1},
        {"probe --simulate-board --seed 4294967295", 0, 0, "", 0},
    };
    std::string out, err;
    for (const auto& c : good) {
        const tools::invocation called = read(c.line, out, err);
        EXPECT_TRUE(called.status == 0 && called.action && err.empty()) << c.line << err;
        EXPECT_EQ(std::tuple(seen->interval, seen->count), std::tuple(c.interval, c.count));
        EXPECT_EQ(std::tuple(called.from.host, called.from.port), std::tuple(c.host, c.port));
    }
    for (const char* line : {"probe 0",
                             "probe -1",
                             "probe nan",
                             "probe inf",
                             "probe 1 0",
                             "probe 1 2.5",
                             "probe 1 2 3",
                             "probe 1x",
                             "no_such_command",
                             "probe --connect board",
                             "probe --connect :9000",
                             "probe --connect board:0",
                             "probe --connect board:65536",
                             "probe --connect board:9x",
                             "probe --root /no_such_folder",
                             "probe --root / --connect board:1",
                             "probe --simulate-board --seed 4294967296",
                             "probe --simulate-board --seed -1",
                             "probe --seed 1",
                             "probe --simulate-board --connect board:1"}) {
        const tools::invocation called = read(line, out, err);
        EXPECT_TRUE(called.status == 2 && !called.action && !err.empty()) << line;
    }
    for (const char* line : {"--help", "--version"}) {
        const tools::invocation called = read(line, out, err);
        EXPECT_TRUE(called.status == 0 && !called.action && err.empty() && !out.empty()) << line;
    }
}

TEST(schedule, reports_once_without_an_interval_and_keeps_its_place_when_points_are_missed) {
    EXPECT_EQ((tools::schedule{0, 0}).reports(), 1);
    EXPECT_EQ((tools::schedule{0, 3}).reports(), 3);
    EXPECT_EQ((tools::schedule{2, 0}).reports(), 0);
    EXPECT_EQ((tools::schedule{0, 3}).period(), 1s);
    EXPECT_EQ((tools::schedule{0.25, 3}).period(), 250ms);
    const auto start = tools::ticker::clock::now();
    tools::ticker ticks(start, 100ms);
    for (const auto& [now, next] : {std::pair(0ms, 100ms),
                                    {150ms, 200ms},
                                    {200ms, 300ms},
                                    {1234ms, 1300ms},
                                    {1301ms, 1400ms}})
        EXPECT_EQ(ticks.next(start + now), start + next);
}
