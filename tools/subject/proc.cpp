// Watched processes: status and I/O in one row.
#include "board.h"
#include "request_numbers.h"
#include "subject.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

namespace tools {
namespace {

constexpr unsigned ticks_per_second = 100; // of the clock that the kernel counts in
constexpr std::int64_t smallest_page = 4096;
constexpr std::int64_t largest_page = 65536;

/// One process, as long as its server knows it.
struct watched_process {
    int pid = 0;
    std::optional<std::uint64_t> start_ticks; ///< nothing before the first answer
    bool ended = false;
    bool io_refused = false;
};

std::string name_of(const process_stat& status) {
    std::string_view name = field_text(status.comm);
    if (!name.empty() && name.front() == '(')
        name.remove_prefix(1);
    if (!name.empty() && name.back() == ')')
        name.remove_suffix(1);
    return std::string(name);
}

// Whether two sizes of one process, asked for one after the other, go with pages of this size.
bool fits(std::int64_t bytes, std::int64_t pages, std::int64_t page_size) {
    constexpr double tolerance = 0.25; // it may have grown or shrunk in between
    const double ratio =
        static_cast<double>(bytes) / static_cast<double>(pages) / static_cast<double>(page_size);
    return std::abs(ratio - 1) < tolerance;
}

/// Finds out the size of the server's pages, the unit of memory sizes in the status.
class page_size_finder {
public:
    /// Asks, the first time. The table of busiest processes has sizes in bytes: that of its largest
    /// process is compared with the status of the same.
    /// @return 0, or the negative code of a query without an answer
    int find(board& server) {
        if (asked_)
            return 0;
        const int code = server.get_busiest_processes();
        if (code < 0)
            return server.is_servers_own(code) ? give_up() : code;
        for (const pid_msg& each : largest(server.busiest))
            if (const int refused = compare(server, each); refused < 0 || size_)
                return refused < 0 ? refused : give_up();
        return give_up();
    }

    /// Bytes of @p pages; unknown if they or the size of one are.
    value bytes_of(std::int64_t pages) const {
        if (!size_ || pages < 0 || pages > std::numeric_limits<std::int64_t>::max() / *size_)
            return unknown;
        return pages * *size_;
    }

private:
    int give_up() {
        asked_ = true;
        return 0;
    }

    static std::vector<pid_msg> largest(const top_pid_info& table) {
        constexpr std::size_t attempts = 3;
        const auto size_of = [](const pid_msg& each) { return std::int64_t{each.rss}; };
        const pid_msg* const first = table.send_pid_info;
        std::vector<pid_msg> rows(first, first + std::clamp(table.pid_num, 0, top_pid_rows));
        std::sort(rows.begin(), rows.end(),
                  [&](const pid_msg& a, const pid_msg& b) { return size_of(a) > size_of(b); });
        rows.resize(std::min(rows.size(), attempts));
        return rows;
    }

    int compare(board& server, const pid_msg& process) {
        if (process.pid <= 0)
            return 0;
        const int code = server.get_process_status(process.pid);
        if (code < 0)
            return server.is_servers_own(code) ? 0 : code;
        const auto& status = server.statuses[process.pid]->last_process_stat;
        if (!status || status->rss <= 0)
            return 0;
        for (std::int64_t size = smallest_page; size <= largest_page; size *= 2)
            if (fits(process.rss, status->rss, size))
                size_ = size;
        return 0;
    }

    bool asked_ = false;
    std::optional<std::int64_t> size_;
};

/// Asks for one process after the other, so that a refused one does not hide the rest.
class process_watch {
public:
    explicit process_watch(const std::vector<int>& pids) {
        for (const int pid : pids)
            if (std::none_of(processes_.begin(), processes_.end(),
                             [pid](const watched_process& each) { return each.pid == pid; }))
                processes_.push_back({pid, {}, false, false});
    }

    int ask(board& server, sample& into) {
        if (const int code = pages_.find(server); code < 0)
            return code;
        for (watched_process& each : processes_)
            if (const int code = each.ended ? 0 : ask_one(server, each, into); code < 0)
                return code;
        into.ended = std::all_of(processes_.begin(), processes_.end(),
                                 [](const watched_process& each) { return each.ended; });
        return 0;
    }

private:
    int ask_one(board& server, watched_process& process, sample& into) {
        const std::string name = "process " + std::to_string(process.pid);
        int code = server.get_process_status(process.pid);
        if (code < 0) {
            if (!server.is_servers_own(code))
                return code;
            process.ended = code == -ESRCH;
            if (process.ended && process.start_ticks)
                into.notes.push_back(name + " has ended");
            else
                into.faults.push_back(name + ": " + std::strerror(-code));
            return 0;
        }
        const auto status = server.statuses[process.pid];
        if (!status->last_process_stat || status->last_process_stat->pid != process.pid) {
            into.faults.push_back(name + ": what the server gave is not its status");
            return 0;
        }
        std::unique_ptr<process_io> io;
        code = ask_io(server, process, name, io, into);
        if (code >= 0)
            add_row(process, *status->last_process_stat, io.get(), into);
        return code;
    }

    // A refusal is reported once, and the process's I/O is not asked for again.
    static int ask_io(board& server, watched_process& process, const std::string& name,
                      std::unique_ptr<process_io>& figures, sample& into) {
        if (process.io_refused)
            return 0;
        const auto io = std::make_shared<process_io_parser>(process.pid);
        const int code = server.cpus.get_process_info(cpu_request::process_io, io, nullptr);
        figures = std::move(io->last_pio);
        if (code >= 0)
            return code;
        if (!server.is_servers_own(code))
            return code;
        process.io_refused = code != -ESRCH; // -ESRCH: it ended a moment ago
        if (process.io_refused)
            into.notes.push_back("I/O of " + name + ": " + std::strerror(-code));
        return 0;
    }

    void add_row(watched_process& process, const process_stat& now, const process_io* io,
                 sample& into) const {
        if (process.start_ticks && *process.start_ticks != now.starttime) {
            into.notes.push_back("process id " + std::to_string(process.pid) +
                                 " was taken over by another process, " + name_of(now) +
                                 ", started " + std::to_string(now.starttime / ticks_per_second) +
                                 " s after boot");
            process.io_refused = false;
        }
        process.start_ticks = now.starttime;
        into.add(std::to_string(process.pid), name_of(now),
                 now.state == '\0' ? value() : value(std::string(1, now.state)),
                 std::to_string(now.ppid), now.processor, now.priority, now.num_threads,
                 pages_.bytes_of(now.rss), now.vsize, now.utime, now.stime, now.minflt, now.majflt,
                 io == nullptr ? value() : value(io->read_bytes),
                 io == nullptr ? value() : value(io->write_bytes))
            .incarnation = now.starttime;
    }

    std::vector<watched_process> processes_;
    page_size_finder pages_;
};

int write_library_report(board& server, std::ostream& out) {
    cpu_stat_manager& cpus = server.cpus;
    if (cpus.stat_parser.empty()) {
        // Usage is a share of what all CPUs can do: count them first.
        if (const int code = cpus.get_cpu_usage(nullptr); code < 0)
            return code;
        for (const int pid : server.chosen.pids) {
            cpus.add_stat_monitor_process(pid);
            cpus.add_io_monitor_process(pid);
        }
    }
    for (std::size_t i = 0; i < cpus.stat_parser.size(); ++i) {
        int code = cpus.get_process_info(cpu_request::process_status, cpus.stat_parser[i], &out);
        if (code >= 0)
            code = cpus.get_process_info(cpu_request::process_io, cpus.io_parser[i], &out);
        if (code >= 0)
            continue;
        if (!server.is_servers_own(code))
            return code;
        server.faults.push_back("process " + std::to_string(cpus.stat_parser[i]->pid) + ": " +
                                std::strerror(-code));
    }
    return 0;
}

const subject_registration registered([] {
    subject proc{
        "proc",
        "process",
        "Watched processes: CPU, memory and I/O",
        {
            label("pid", "PID", "Process id"),
            text("command", "Name of the command").column("COMMAND"),
            text("state", "State, as the kernel's letter").column("S", 3),
            text("ppid", "Process id of the parent").column("PPID", 6),
            gauge("cpu", unit::none, "CPU last run on").column("CPU", 4),
            gauge("priority", unit::none, "The kernel's priority").column("PRI", 5),
            gauge("threads", unit::none, "Number of threads").column("thr", 4),
            gauge("rss_bytes", unit::bytes, "Resident memory").column("RSS"),
            gauge("virtual_bytes", unit::bytes, "Address space").column("VSZ", 5),
            counter("user_seconds", unit::seconds, "CPU time in user mode")
                .counted_in(ticks_per_second),
            counter("system_seconds", unit::seconds, "CPU time in the kernel")
                .counted_in(ticks_per_second),
            counter("minor_faults", unit::none, "Page faults without I/O"),
            counter("major_faults", unit::none, "Page faults that needed I/O"),
            counter("read_bytes", unit::bytes, "Bytes read from storage"),
            counter("written_bytes", unit::bytes, "Bytes written to storage"),
            rate("user_percent", unit::percent, "Share of one CPU in user mode")
                .per_second_of("user_seconds", 100)
                .column("%user", 2),
            rate("system_percent", unit::percent, "Share of one CPU in the kernel")
                .per_second_of("system_seconds", 100)
                .column("%system", 2),
            rate("usage_percent", unit::percent, "Share of one CPU")
                .formed_by({{"user_seconds", "system_seconds"}, {}, {}, 100})
                .column("%CPU"),
            rate("read_bytes_per_second", unit::bytes_per_second,
                 "Bytes read from storage in a second")
                .per_second_of("read_bytes")
                .column("rd_kB/s"),
            rate("written_bytes_per_second", unit::bytes_per_second,
                 "Bytes written to storage in a second")
                .per_second_of("written_bytes")
                .column("wr_kB/s"),
            rate("minor_faults_per_second", unit::per_second, "Page faults without I/O in a second")
                .per_second_of("minor_faults")
                .column("minflt/s", 6),
            rate("major_faults_per_second", unit::per_second,
                 "Page faults that needed I/O in a second")
                .per_second_of("major_faults")
                .column("majflt/s", 6),
        },
        [](const selection& chosen) -> asker {
            return [watch = std::make_shared<process_watch>(chosen.pids)](
                       board& server, sample& into) { return watch->ask(server, into); };
        }};
    proc.library_report = write_library_report;
    proc.needs_pids = true;
    proc.place = 92;
    return proc;
}());

} // namespace
} // namespace tools
