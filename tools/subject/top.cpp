// The busiest processes.
#include "board.h"
#include "subject.h"

#include <algorithm>
#include <cmath>

namespace tools {
namespace {

// A float from the wire may be NaN or infinite.
float usage_of(const pid_msg& process) {
    return std::isnan(process.process_usage) ? -1.0F : process.process_usage;
}

// The rows in use, the busiest first.
std::vector<pid_msg> sorted_rows(const top_pid_info& table) {
    const pid_msg* const first = table.send_pid_info;
    std::vector<pid_msg> rows(first, first + std::clamp(table.pid_num, 0, top_pid_rows));
    std::stable_sort(rows.begin(), rows.end(),
                     [](const pid_msg& a, const pid_msg& b) { return usage_of(a) > usage_of(b); });
    return rows;
}

void add_process(const pid_msg& each, sample& into) {
    constexpr float kilobyte = 1024;
    const std::int64_t rss = each.rss;
    into.add(std::to_string(each.pid), field_text(each.comm),
             each.state == '\0' ? value() : value(std::string(1, each.state)),
             std::to_string(each.ppid), each.processor, each.priority, each.process_usage,
             each.nnu_usage, each.io_per_second * kilobyte, each.net_band * kilobyte,
             rss < 0 ? value() : value(rss));
}

int ask(board& server, std::size_t most_rows, sample& into) {
    const int code = server.get_busiest_processes();
    if (code < 0)
        return code;
    std::vector<pid_msg> rows = sorted_rows(server.busiest);
    constexpr std::size_t room = top_pid_rows;
    const bool shows_all = most_rows == 0 || most_rows > room;
    if (rows.size() == room && shows_all)
        into.notes.push_back("the server names at most " + std::to_string(room) +
                             " processes: the busiest");
    if (!shows_all)
        rows.resize(std::min(rows.size(), most_rows));
    for (const pid_msg& each : rows)
        add_process(each, into);
    return code;
}

const subject_registration registered([] {
    subject top{"top",
                "top",
                "The busiest processes",
                {label("pid", "PID", "Process id"),
                 text("command", "Name of the command").column("COMMAND"),
                 text("state", "State, as the kernel's letter").column("S", 3),
                 text("ppid", "Process id of the parent").column("PPID", 5),
                 gauge("cpu", unit::none, "CPU last run on").column("CPU", 4),
                 gauge("priority", unit::none, "The kernel's priority").column("PRI", 5),
                 gauge("usage_percent", unit::percent, "Share of one CPU").column("%CPU"),
                 gauge("nnu_percent", unit::percent, "Share of the accelerator").column("%NNU", 2),
                 gauge("io_bytes_per_second", unit::bytes_per_second,
                       "Bytes read from and written to storage in a second")
                     .column("IO_kB/s", 2),
                 gauge("network_bytes_per_second", unit::bytes_per_second,
                       "Bytes received and sent in a second")
                     .column("net_kB/s", 2),
                 gauge("rss_bytes", unit::bytes, "Resident memory").column("RSS")},
                [](const selection& chosen) -> asker {
                    return [rows = chosen.rows](board& server, sample& into) {
                        return ask(server, rows, into);
                    };
                }};
    top.library_report = [](board& server, std::ostream& out) {
        return server.cpus.get_process_all(0, &out);
    };
    top.order_by = "usage_percent";
    top.has_many_rows = true;
    top.place = 90;
    top.summary_rows = 5;
    return top;
}());

} // namespace
} // namespace tools
