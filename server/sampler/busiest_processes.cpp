// The table of busiest processes.
#include "mon_cpu.h"
#include "platform_log.h"
#include "process_files.h"
#include "process_network.h"
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
// What looking at the shown processes' sockets may take: the descriptors of one process, those of
// all, and with the kernel's list of sockets.
constexpr std::chrono::milliseconds descriptors_max{10};
constexpr std::chrono::milliseconds all_descriptors_max{60};
constexpr std::chrono::milliseconds network_max{100};
// Clients whose previous answer is remembered; the one that asked longest ago makes room.
constexpr std::size_t clients_max = 32;

// The running totals of one process.
struct process_totals {
    std::int32_t pid;
    std::uint64_t start_ticks; // tells a process from an earlier one of the same id
    std::uint64_t run_ticks;
    double io_bytes; // not a number if they may not be read
};

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

// All that was read for one answer.
struct snapshot {
    double uptime = 0;                     // seconds since boot
    std::vector<process_totals> processes; // by id
};

// The time that a process's figures are an average over, and the totals at its start.
struct base {
    double seconds;
    std::uint64_t run_ticks = 0;
    double io_bytes = 0;
};

const double ticks_per_second = static_cast<double>(sysconf(_SC_CLK_TCK));
const std::int64_t page_size = sysconf(_SC_PAGESIZE);

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
    const double tick = 1 / ticks_per_second;
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
    // In this order, std::max passes on what is not a number.
    row.io_per_second =
        static_cast<float>(std::max(now.io_bytes - since.io_bytes, 0.0) / 1024 / since.seconds);
    const std::uint64_t ticks = now.run_ticks - std::min(since.run_ticks, now.run_ticks);
    row.process_usage =
        static_cast<float>(static_cast<double>(ticks) / ticks_per_second / since.seconds * 100);
    row.net_band = static_cast<float>(unknown);
    constexpr std::int64_t pages_max = std::numeric_limits<std::int64_t>::max() >> 24;
    row.rss = std::clamp<std::int64_t>(status.rss_pages, 0, pages_max) * page_size;
    return row;
}

// Leaves the rows that fit into the table, the busiest first.
void choose_rows(std::vector<pid_msg>& rows) {
    const auto shown = std::min<std::size_t>(rows.size(), top_pid_rows);
    std::partial_sort(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(shown), rows.end(),
                      [](const pid_msg& a, const pid_msg& b) {
                          return a.process_usage != b.process_usage
                                     ? a.process_usage > b.process_usage
                                     : a.pid < b.pid;
                      });
    rows.resize(shown);
}

// Fills in what the processes' sockets have carried since @p rates was updated before. A rate that
// cannot be known in time stays unknown.
void add_network(const all_processes& processes, socket_rates& rates, std::vector<pid_msg>& rows) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::pair<pid_msg*, std::vector<std::uint32_t>>> known;
    for (pid_msg& row : rows) {
        const auto now = std::chrono::steady_clock::now();
        if (now > start + all_descriptors_max)
            break;
        std::vector<std::uint32_t> inodes;
        if (list_socket_inodes(processes.open_descriptors(row.pid), now + descriptors_max,
                               inodes) == 0)
            known.emplace_back(&row, std::move(inodes));
    }
    std::vector<tcp_socket> sockets;
    if (list_tcp_sockets(start + network_max, sockets) < 0)
        return;
    rates.update(std::move(sockets), std::chrono::steady_clock::now());
    for (const auto& [row, inodes] : known)
        row->net_band = static_cast<float>(rates.rate(inodes) / 1024);
}

// Deals the simulated cores' load out: on each core two of the four busiest processes work.
void add_accelerator(const board_figures& board, std::vector<pid_msg>& rows) {
    for (std::size_t core = 0; core < board.nnu_load.size() && !rows.empty(); ++core) {
        const float load = static_cast<float>(board.nnu_load[core]) / 10;
        rows[std::min(2 * core, rows.size() - 1)].nnu_usage += load * 0.75F;
        rows[std::min(2 * core + 1, rows.size() - 1)].nnu_usage += load * 0.25F;
    }
}

// Builds tables, and remembers for each client what the previous one was made from.
class process_table {
public:
    explicit process_table(const host& env) : env_(env) {}

    int answer(std::uint8_t client_id, reply& answer) {
        const auto deadline = std::chrono::steady_clock::now() + time_max;
        const all_processes processes(env_);
        std::vector<std::int32_t> pids;
        if (const int error = processes.list(processes_max + 1, pids); error < 0)
            return error;
        const auto known = previous_.find(client_id);
        snapshot now;
        now.uptime = read_uptime(env_);
        now.processes.reserve(pids.size());
        std::vector<pid_msg> rows;
        std::size_t looked_at = 0;
        const std::size_t most = std::min(pids.size(), processes_max);
        while (looked_at < most && std::chrono::steady_clock::now() <= deadline)
            add_process(processes, pids[looked_at++],
                        known != previous_.end() ? &known->second.seen : nullptr, now, rows);
        log_left_out(looked_at, pids.size() - looked_at);
        choose_rows(rows);
        client& asking = remember(client_id, std::move(now));
        if (env_.is_live())
            add_network(processes, asking.sockets, rows);
        if (env_.board() != nullptr)
            add_accelerator(env_.board()->now(), rows);
        top_pid_info table{};
        table.pid_num = static_cast<std::int32_t>(rows.size());
        std::copy(rows.begin(), rows.end(), table.send_pid_info);
        answer.add_record(table);
        return 0;
    }

    void forget(std::uint8_t client_id) { previous_.erase(client_id); }

private:
    struct client {
        snapshot seen;
        socket_rates sockets;
    };

    // Adds nothing for a process that has ended since it was listed.
    void add_process(const all_processes& processes, std::int32_t pid, const snapshot* before,
                     snapshot& now, std::vector<pid_msg>& rows) {
        process_status status;
        if (processes.read_stat(pid, stat_) < 0 || !parse_process_stat(stat_, status))
            return;
        process_totals totals{pid, status.start_ticks, status.run_ticks, unknown};
        if (processes.read_io(pid, io_) == 0)
            totals.io_bytes = static_cast<double>(storage_bytes(io_));
        rows.push_back(make_row(status, totals, base_of(totals, before, now.uptime)));
        now.processes.push_back(totals);
    }

    void log_left_out(std::size_t looked_at, std::size_t left_out) {
        if (left_out > 0 && !left_out_)
            __android_log_print(ANDROID_LOG_ERROR, "MONSRV",
                                "processes beyond the first %zu are not in the table of busiest "
                                "ones: too many, or too slow to read\n",
                                looked_at);
        left_out_ = left_out > 0;
    }

    client& remember(std::uint8_t client_id, snapshot now) {
        previous_[client_id].seen = std::move(now);
        if (previous_.size() > clients_max)
            previous_.erase(std::min_element(previous_.begin(), previous_.end(),
                                             [](const auto& a, const auto& b) {
                                                 return a.second.seen.uptime < b.second.seen.uptime;
                                             }));
        return previous_[client_id];
    }

    const host& env_;
    std::map<std::uint8_t, client> previous_;
    bool left_out_ = false; // from the latest table
    std::string stat_;      // kept to be reused
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
