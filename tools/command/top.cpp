// moncl top: the busiest processes.
#include "cpu_stat_manager.h"

#include "live_screen.h"
#include "session.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <sstream>

namespace tools {
namespace {

// The rows that are there, the busiest first.
std::vector<pid_msg> sorted_rows(const top_pid_info& table) {
    const pid_msg* const first = table.send_pid_info;
    std::vector<pid_msg> rows(first, first + std::clamp(table.pid_num, 0, top_pid_rows));
    // What came over the wire may be no number at all.
    auto usage = [](const pid_msg& row) {
        return std::isnan(row.process_usage) ? -1.0F : row.process_usage;
    };
    std::stable_sort(rows.begin(), rows.end(),
                     [usage](const pid_msg& a, const pid_msg& b) { return usage(a) > usage(b); });
    return rows;
}

// Names are the processes' own to choose: none may steer the terminal.
char printable(char c) {
    return c >= ' ' && c <= '~' ? c : '?';
}

void write_row(const pid_msg& row, std::ostream& line) {
    const std::int64_t rss = row.rss;
    line << std::setw(7) << row.pid << std::setw(8) << row.ppid << std::setw(4) << row.processor
         << std::setw(8) << row.process_usage << std::setw(10) << row.io_per_second << std::setw(9)
         << row.net_band << std::setw(7) << row.nnu_usage << std::setw(8);
    show_by_unit(static_cast<unsigned long>(std::max<std::int64_t>(rss, 0)), line, 0);
    line << std::setw(5) << row.priority << ' ' << printable(row.state) << ' ';
    std::string comm(row.comm, strnlen(row.comm, sizeof row.comm));
    std::transform(comm.begin(), comm.end(), comm.begin(), printable);
    line << comm;
}

std::string format_table(const top_pid_info& table, window_size room) {
    std::string page;
    std::ostringstream line;
    line << std::fixed << std::setprecision(1);
    auto end_line = [&] {
        page += line.str().substr(0, room.columns) + "\n";
        line.str({});
    };
    line << "    PID    PPID CPU    %CPU   IO:KB/s Net:KB/s   %NNU     RSS  PRI S COMMAND";
    end_line();
    const std::vector<pid_msg> rows = sorted_rows(table);
    for (std::size_t i = 0; i < rows.size() && i < room.rows; ++i) {
        write_row(rows[i], line);
        end_line();
    }
    return page;
}

int report(cpu_stat_manager& manager, std::size_t rows, live_screen& screen, std::ostream* out) {
    const int code = manager.get_process_all(0, nullptr);
    if (code < 0 || out == nullptr)
        return code;
    const top_pid_info& table = *manager.process_parser->pid_info;
    if (!screen.is_terminal()) {
        *out << format_table(table, {rows, std::string::npos});
        return code;
    }
    window_size room = screen.size();
    // Less the headings and the line that the cursor is left on.
    room.rows = std::min(rows, std::max<std::size_t>(room.rows, 3) - 2);
    screen.show(format_table(table, room));
    return code;
}

command_action configure(CLI::App& app) {
    auto rows = std::make_shared<std::size_t>(top_pid_rows);
    app.add_option("--rows", *rows, "Most processes shown")
        ->check(CLI::Range(1, top_pid_rows))
        ->option_text("N");
    return [rows, when = add_schedule(app)](session& asking) {
        cpu_stat_manager manager(asking.new_connection());
        live_screen screen(asking.out());
        schedule times = *when;
        if (screen.is_terminal() && times.interval <= 0 && times.count <= 0)
            times.interval = 1;
        return asking.repeat(
            times, {[&](std::ostream* out) { return report(manager, *rows, screen, out); },
                    {manager.client},
                    true});
    };
}

const command_registration registered("top", "The busiest processes; on a terminal, until stopped",
                                      configure);

} // namespace
} // namespace tools
