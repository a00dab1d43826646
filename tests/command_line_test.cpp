// The command line and the schedule it gives.
#include "command_line.h"
#include "manager_support.h"

#include <CLI/CLI.hpp>

using namespace std::chrono_literals;

namespace {
std::shared_ptr<tools::schedule> seen;

// A command that only keeps its schedule.
const tools::command_registration probe("probe", "Test command", [](CLI::App& app) {
    seen = tools::add_schedule(app);
    return tools::command_action([](tools::session&) { return 0; });
});
} // namespace

TEST(command_line, reads_interval_count_and_source) {
    auto read = [](const std::string& line) {
        std::istringstream words(line);
        std::ostringstream out, err;
        const tools::invocation called =
            tools::read_command_line({std::istream_iterator<std::string>(words), {}}, out, err);
        EXPECT_EQ(called.status == 0, err.str().empty()) << err.str();
        return called.action
                   ? line_of(seen->interval, seen->count, called.from.host, called.from.port)
                   : std::to_string(called.status) + (out.str().empty() ? "" : " text");
    };
    expect_each(read, {"probe => 0 0  0 ", "probe 0.25 7 => 0.25 7  0 ",
                       "probe -i 2 -n 3 => 2 3  0 ", "probe --interval=1.5 --count=1 => 1.5 1  0 ",
                       "--help => 0 text", "--connect board:9000 probe => 0 0 board 9000 ",
                       "--version => 0 text", "probe --simulate-board --seed 4294967295 => 0 0  0 ",
                       "probe 1 --connect 10.0.0.7:1 => 1 0 10.0.0.7 1 ",
                       "probe --connect [::1]:5757 => 0 0 [::1] 5757 "});
    std::istringstream refused(
        "no_such_command|probe 0|probe -1|probe nan|probe inf|probe 1 0|"
        "probe 1 2.5|probe 1 2 3|probe 1x|probe --connect board|"
        "probe --connect :9|probe --connect ::1:9|probe --connect []:9|probe --connect [::1]|"
        "probe --connect board:0|probe --connect board:65536|"
        "probe --connect board:9x|probe --root /no_such_folder|"
        "probe --root / --connect board:1|"
        "probe --simulate-board --seed 4294967296|"
        "probe --simulate-board --seed -1|probe --seed 1|"
        "probe --simulate-board --connect board:1");
    for (std::string line; std::getline(refused, line, '|');)
        EXPECT_EQ(read(line), "2") << line;
}

TEST(schedule, reports_once_without_an_interval_and_keeps_its_place_when_points_are_missed) {
    const tools::schedule none{0, 0}, three{0, 3}, forever{0.25, 0};
    EXPECT_EQ(line_of(none.reports(), three.reports(), forever.reports()), "1 3 0 ");
    EXPECT_TRUE(three.period() == 1s && forever.period() == 250ms);
    const auto start = tools::ticker::clock::now();
    tools::ticker ticks(start, 100ms);
    for (int now : {0, 150, 200, 1234, 1301})
        EXPECT_EQ(ticks.next(start + now * 1ms), start + (now / 100 + 1) * 100ms) << now;
}
