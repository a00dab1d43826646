// The table of busiest processes.
#include "mon_cpu.h"
#include "process_files.h"
#include "sampler.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <limits>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace monsrv {
namespace {

// What one answer may cost: beyond these the processes of the highest ids are left out.
constexpr std::size_t processes_max = 32768;
constexpr std::chrono::milliseconds time_max{500};
// Clients whose previous answer is remembered; the one that asked longest ago makes room.
constexpr std::size_t clients_max = 32;

// The running totals of one process.
struct process_totals {
    std::int32_t pid;
    std::uint64_t start_ticks; // tells a process from an earlier one of the same id
    std::uint64_t run_ticks;
    std::uint64_t io_bytes;
};

// All that was read for one answer.
struct snapshot {
    double uptime = 0;                     // seconds since boot
    std::vector<process_totals> processes; // by id
};

// The time that a process's figures are an average over, and the totals at its start.
struct base {
    double seconds;
    std::uint64_t run_ticks = 0;
    std::uint64_t io_bytes = 0;
};

double ticks_per_second() {
    return static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The clock that start times are counted on. A tree of files has stopped with its own.
double read_uptime(const host& env) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    double uptime = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    std::string text;
    if (!env.is_live() && env.read("/proc/uptime", text) == 0)
        std::istringstream(text) >> uptime;
    return uptime;
}

// The answer before this one if there was one, else the process's start: so the first table already
// ranks processes, as averages of their lives, and a tree of files shows more than zeros.
base base_of(const process_totals& now, const snapshot* before, double uptime) {
    const double tick = 1 / ticks_per_second();
    const double started = static_cast<double>(now.start_ticks) * tick;
    if (before != nullptr && uptime > before->uptime) {
        const double elapsed = uptime - before->uptime;
        const auto& known = before->processes;
        const auto found = std::lower_bound(
            known.begin(), known.end(), now.pid,
            [](const process_totals& each, std::int32_t pid) { return each.pid < pid; });
        if (found != known.end() && found->pid == now.pid && found->start_ticks == now.start_ticks)
            return {elapsed, found->run_ticks, found->io_bytes};
        if (started + tick > before->uptime)
            return {elapsed};
    }
    return {std::max(uptime - started, tick)};
}

double growth(std::uint64_t from, std::uint64_t to) {
    return to > from ? static_cast<double>(to - from) : 0;
}

std::int16_t to_int16(std::int64_t value) {
    using limits = std::numeric_limits<std::int16_t>;
    return static_cast<std::int16_t>(std::clamp<std::int64_t>(value, limits::min(), limits::max()));
}

pid_msg make_row(const process_status& status, const process_totals& now, const base& since) {
    pid_msg row{};
    row.pid = now.pid;
    row.ppid = status.ppid;
    status.comm.copy(row.comm, sizeof row.comm - 1);
    row.state = status.state;
    row.priority = to_int16(status.priority);
    row.processor = to_int16(status.processor);
    row.io_per_second =
        static_cast<float>(growth(since.io_bytes, now.io_bytes) / 1024 / since.seconds);
    row.process_usage = static_cast<float>(growth(since.run_ticks, now.run_ticks) /
                                           ticks_per_second() / since.seconds * 100);
    constexpr std::int64_t pages_max = std::numeric_limits<std::int64_t>::max() >> 24;
    row.rss = std::clamp<std::int64_t>(status.rss_pages, 0, pages_max) * sysconf(_SC_PAGESIZE);
    return row;
}

void add_table(std::vector<pid_msg>& rows, reply& answer) {
    const auto shown = std::min<std::size_t>(rows.size(), top_pid_rows);
    const auto end = rows.begin() + static_cast<std::ptrdiff_t>(shown);
    std::partial_sort(rows.begin(), end, rows.end(), [](const pid_msg& a, const pid_msg& b) {
        return a.process_usage != b.process_usage ? a.process_usage > b.process_usage
                                                  : a.pid < b.pid;
    });
    top_pid_info table{};
    table.pid_num = static_cast<std::int32_t>(shown);
    std::copy(rows.begin(), end, table.send_pid_info);
    answer.add_record(table);
}

// Builds tables, and remembers for each client what the previous one was made from.
class process_table {
public:
    explicit process_table(const host& env) : env_(env) {}

    int answer(std::uint8_t client_id, reply& answer) {
        const auto deadline = std::chrono::steady_clock::now() + time_max;
        const auto known = previous_.find(client_id);
        const snapshot* before = known != previous_.end() ? &known->second : nullptr;
        snapshot now;
        now.uptime = read_uptime(env_);
        std::vector<pid_msg> rows;
        for (const std::int32_t pid : list_processes(env_, processes_max)) {
            if (std::chrono::steady_clock::now() > deadline)
                break;
            add_process(pid, before, now, rows);
        }
        add_table(rows, answer);
        remember(client_id, std::move(now));
        return 0;
    }

    void forget(std::uint8_t client_id) { previous_.erase(client_id); }

private:
    // Adds nothing for a process that has ended since it was listed.
    void add_process(std::int32_t pid, const snapshot* before, snapshot& now,
                     std::vector<pid_msg>& rows) {
        process_status status;
        if (read_process_stat(env_, pid, stat_) < 0 || !parse_process_stat(stat_, status))
            return;
        process_totals totals{pid, status.start_ticks, status.run_ticks, 0};
        if (read_process_io(env_, pid, io_) == 0)
            totals.io_bytes = storage_bytes(io_);
        rows.push_back(make_row(status, totals, base_of(totals, before, now.uptime)));
        now.processes.push_back(totals);
    }

    void remember(std::uint8_t client_id, snapshot now) {
        previous_[client_id] = std::move(now);
        if (previous_.size() <= clients_max)
            return;
        previous_.erase(
            std::min_element(previous_.begin(), previous_.end(), [](const auto& a, const auto& b) {
                return a.second.uptime < b.second.uptime;
            }));
    }

    const host& env_;
    std::map<std::uint8_t, snapshot> previous_;
    std::string stat_; // kept to be reused
    std::string io_;
};

void install(sampler_table& table, const host& env) {
    auto processes = std::make_shared<process_table>(env);
    table.on(cpu_command, cpu_request::busiest_processes,
             [processes](const request& asked, reply& answer) {
                 return processes->answer(asked.client_id, answer);
             });
    table.on_client_gone([processes](std::uint8_t id) { processes->forget(id); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
