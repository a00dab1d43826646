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
// When the I/O accounts of processes that are not shown are no longer read for the next answer.
constexpr std::chrono::milliseconds accounts_max{100};
// What looking at the shown processes' sockets may take: the descriptors of one process, those of
// all, and with the kernel's list of sockets.
constexpr std::chrono::milliseconds descriptors_max{10};
constexpr std::chrono::milliseconds all_descriptors_max{60};
constexpr std::chrono::milliseconds network_max{100};
// Clients whose previous answer is remembered; the one that asked longest ago makes room.
constexpr std::size_t clients_max = 32;

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

// The running totals of one process.
struct process_totals {
    std::int32_t pid;
    std::uint64_t start_ticks; // tells a process from an earlier one of the same id
    std::uint64_t run_ticks;
    bool ran;                  // since the answer before
    double io_bytes = unknown; // not a number if they were not read
    double io_time = 0;        // of reading them, in seconds since boot
};

// All that was read for one answer.
struct snapshot {
    double uptime = 0;                     // seconds since boot
    std::vector<process_totals> processes; // by id
};

// The time that a process's figures are an average over, and the totals at its start.
struct base {
    double seconds;
    std::uint64_t run_ticks;
    double io_bytes;
    double io_time;
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

// The process @p pid among @p processes; null if it is not there.
const process_totals* find_process(const std::vector<process_totals>& processes, std::int32_t pid) {
    const auto found = std::lower_bound(
        processes.begin(), processes.end(), pid,
        [](const process_totals& each, std::int32_t wanted) { return each.pid < wanted; });
    return found != processes.end() && found->pid == pid ? &*found : nullptr;
}

// The answer before this one if there was one, else the process's start: so the first table already
// ranks processes, as averages of their lives, and a tree of files shows more than zeros.
base base_of(const process_totals& now, const snapshot* before, double uptime) {
    const double tick = 1 / ticks_per_second;
    const double started = static_cast<double>(now.start_ticks) * tick;
    if (before != nullptr && uptime > before->uptime) {
        const double elapsed = uptime - before->uptime;
        const process_totals* known = find_process(before->processes, now.pid);
        if (known != nullptr && known->start_ticks == now.start_ticks)
            return {elapsed, known->run_ticks, known->io_bytes, known->io_time};
        if (started + tick > before->uptime)
            return {elapsed, 0, 0, before->uptime};
    }
    const double age = std::max(uptime - started, tick);
    return {age, 0, 0, uptime - age};
}

// KB per second, or not a number if the bytes of now or of before are not known.
float io_rate(const process_totals& now, const base& since) {
    // In this order, std::max passes on what is not a number.
    const double bytes = std::max(now.io_bytes - since.io_bytes, 0.0);
    return static_cast<float>(bytes / 1024 / (now.io_time - since.io_time));
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
    row.io_per_second = static_cast<float>(unknown);
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
        const auto start = std::chrono::steady_clock::now();
        const all_processes processes(env_);
        std::vector<std::int32_t> pids;
        if (const int error = processes.list(processes_max + 1, pids); error < 0)
            return error;
        const auto known = previous_.find(client_id);
        const snapshot* before = known != previous_.end() ? &known->second.seen : nullptr;
        snapshot now;
        now.uptime = read_uptime(env_);
        now.processes.reserve(pids.size());
        std::vector<pid_msg> rows;
        std::size_t looked_at = 0;
        const std::size_t most = std::min(pids.size(), processes_max);
        while (looked_at < most && std::chrono::steady_clock::now() <= start + time_max)
            add_process(processes, pids[looked_at++], before, now, rows);
        log_left_out(looked_at, pids.size() - looked_at);
        choose_rows(rows);
        add_io(processes, before, now, rows);
        read_other_accounts(processes, now, start + accounts_max);
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
        process_totals totals{pid, status.start_ticks, status.run_ticks, true};
        const base since = base_of(totals, before, now.uptime);
        totals.ran = since.run_ticks != status.run_ticks;
        rows.push_back(make_row(status, totals, since));
        now.processes.push_back(totals);
    }

    void read_account(const all_processes& processes, const snapshot& now, process_totals& totals) {
        totals.io_time = env_.is_live() ? read_uptime(env_) : now.uptime;
        if (processes.read_io(totals.pid, io_) == 0)
            totals.io_bytes = static_cast<double>(storage_bytes(io_));
    }

    void add_io(const all_processes& processes, const snapshot* before, snapshot& now,
                std::vector<pid_msg>& rows) {
        for (pid_msg& row : rows) {
            const auto at = find_process(now.processes, row.pid) - now.processes.data();
            process_totals& totals = now.processes[static_cast<std::size_t>(at)];
            read_account(processes, now, totals);
            row.io_per_second = io_rate(totals, base_of(totals, before, now.uptime));
        }
    }

    // For the next answer, which may show others: first of those that are likelier to be shown.
    void read_other_accounts(const all_processes& processes, snapshot& now,
                             std::chrono::steady_clock::time_point deadline) {
        for (const bool ran : {true, false}) {
            for (process_totals& each : now.processes) {
                if (each.ran != ran || each.io_time != 0)
                    continue;
                if (std::chrono::steady_clock::now() > deadline)
                    return;
                read_account(processes, now, each);
            }
        }
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
