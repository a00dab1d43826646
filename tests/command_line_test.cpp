// The command line and the schedule it gives.
#include "command_line.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>
#include <sstream>

using namespace std::chrono_literals;

namespace {
tools::schedule* seen = nullptr;
std::shared_ptr<tools::schedule> kept;

// A command that only keeps its schedule.
const tools::command_registration probe("probe", "Test command", [](CLI::App& app) {
    kept = tools::add_schedule(app);
    seen = kept.get();
    return tools::command_action([](tools::session&) { return 0; });
});
} // namespace

TEST(command_line, reads_interval_count_and_source) {
    const struct {
        std::vector<std::string> arguments;
        int status;
        double interval;
        long count;
        const char* host;
        int port;
    } cases[] = {
        {{"probe"}, 0, 0, 0, "", 0},
        {{"probe", "2"}, 0, 2, 0, "", 0},
        {{"probe", "0.25", "7"}, 0, 0.25, 7, "", 0},
        {{"probe", "-i", "2", "-n", "3"}, 0, 2, 3, "", 0},
        {{"probe", "--interval=1.5", "--count=1"}, 0, 1.5, 1, "", 0},
        {{"--connect", "board:9000", "probe"}, 0, 0, 0, "board", 9000},
        {{"probe", "1", "--connect", "10.0.0.7:1"}, 0, 1, 0, "10.0.0.7", 1},
        {{"probe", "0"}, 2, 0, 0, "", 0},
        {{"probe", "-1"}, 2, 0, 0, "", 0},
        {{"probe", "nan"}, 2, 0, 0, "", 0},
        {{"probe", "inf"}, 2, 0, 0, "", 0},
        {{"probe", "1", "0"}, 2, 0, 0, "", 0},
        {{"probe", "1", "2.5"}, 2, 0, 0, "", 0},
        {{"probe", "1", "2", "3"}, 2, 0, 0, "", 0},
        {{"probe", "1x"}, 2, 0, 0, "", 0},
        {{"no_such_command"}, 2, 0, 0, "", 0},
        {{"probe", "--connect", "board"}, 2, 0, 0, "", 0},
        {{"probe", "--connect", ":9000"}, 2, 0, 0, "", 0},
        {{"probe", "--connect", "board:0"}, 2, 0, 0, "", 0},
        {{"probe", "--connect", "board:65536"}, 2, 0, 0, "", 0},
        {{"probe", "--connect", "board:9x"}, 2, 0, 0, "", 0},
        {{"probe", "--root", "/no such folder"}, 2, 0, 0, "", 0},
        {{"probe", "--root", "/", "--connect", "board:1"}, 2, 0, 0, "", 0},
        {{"probe", "--simulate-board", "--seed", "4294967295"}, 0, 0, 0, "", 0},
        {{"probe", "--simulate-board", "--seed", "4294967296"}, 2, 0, 0, "", 0},
        {{"probe", "--simulate-board", "--seed", "-1"}, 2, 0, 0, "", 0},
        {{"probe", "--seed", "1"}, 2, 0, 0, "", 0},
        {{"probe", "--simulate-board", "--connect", "board:1"}, 2, 0, 0, "", 0},
    };
    for (const auto& c : cases) {
        std::string all;
        for (const std::string& word : c.arguments)
            all += word + " ";
        SCOPED_TRACE(all);
        std::ostringstream out;
        std::ostringstream err;
        const tools::invocation called = tools::read_command_line(c.arguments, out, err);
        EXPECT_EQ(called.status, c.status);
        EXPECT_EQ(static_cast<bool>(called.action), c.status == 0);
        EXPECT_EQ(err.str().empty(), c.status == 0) << err.str();
        if (c.status != 0)
            continue;
        EXPECT_EQ(seen->interval, c.interval);
        EXPECT_EQ(seen->count, c.count);
        EXPECT_EQ(called.from.host, c.host);
        EXPECT_EQ(called.from.port, c.port);
    }
}

TEST(command_line, helps_on_request) {
    for (const char* option : {"--help", "--version"}) {
        std::ostringstream out;
        std::ostringstream err;
        const tools::invocation called = tools::read_command_line({option}, out, err);
        EXPECT_EQ(called.status, 0);
        EXPECT_FALSE(called.action);
        EXPECT_NE(out.str(), "");
        EXPECT_EQ(err.str(), "");
    }
}

TEST(schedule, reports_once_without_an_interval_and_forever_with_one) {
    EXPECT_EQ((tools::schedule{0, 0}).reports(), 1);
    EXPECT_EQ((tools::schedule{0, 3}).reports(), 3);
    EXPECT_EQ((tools::schedule{2, 0}).reports(), 0);
    EXPECT_EQ((tools::schedule{0, 3}).period(), 1s);
    EXPECT_EQ((tools::schedule{0.25, 3}).period(), 250ms);
}

TEST(ticker, keeps_its_place_when_points_are_missed) {
    const auto start = tools::ticker::clock::now();
    tools::ticker ticks(start, 100ms);
    EXPECT_EQ(ticks.next(start), start + 100ms);
    EXPECT_EQ(ticks.next(start + 150ms), start + 200ms);
    EXPECT_EQ(ticks.next(start + 200ms), start + 300ms);
    EXPECT_EQ(ticks.next(start + 1234ms), start + 1300ms);
    EXPECT_EQ(ticks.next(start + 1301ms), start + 1400ms);
}
