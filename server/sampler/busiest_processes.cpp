// The table of busiest processes.
//
// Reading the kernel's files of all processes is what costs. So clients share samples: one serves
// all who ask within a tenth of a second, and each gets the difference to the sample that it was
// answered from before.
#include "mon_cpu.h"
#include "platform_log.h"
#include "process_files.h"
#include "process_network.h"
#include "sampler.h"
#include "socket_owners.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <unistd.h>

namespace monsrv {
namespace {

// How long a sample serves those who ask, or as long as it took if that is more.
constexpr std::chrono::milliseconds shared_for{100};
// What one sample may cost: beyond these the processes of the highest ids are left out.
constexpr std::size_t processes_max = 32768;
constexpr std::chrono::milliseconds time_max{500};
// When no more I/O accounts are read for a sample, other than of processes that are shown.
constexpr std::chrono::milliseconds accounts_max{100};
// What looking at the shown processes' sockets may take: the descriptors of one process, those of
// all, and with the kernel's list of sockets.
constexpr std::chrono::milliseconds descriptors_max{10};
constexpr std::chrono::milliseconds all_descriptors_max{60};
constexpr std::chrono::milliseconds network_max{100};
// Clients whose previous answer is remembered, and the samples that these were answered from; the
// client that asked longest ago makes room.
constexpr std::size_t clients_max = 128;
constexpr std::size_t samples_max = 32;

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

// The running totals of one process.
struct process_totals {
    std::int32_t pid;
    std::uint64_t start_ticks; // tells a process from an earlier one of the same id
    std::uint64_t run_ticks;
    bool ran;                  // since the sample before
    double io_bytes = unknown; // not a number if they were not read
    double io_time = 0;        // of reading them, in seconds since boot
};

// What rates are counted from; kept while a client's previous answer was made from it.
struct snapshot {
    double uptime = 0;                     // seconds since boot
    std::vector<process_totals> processes; // by id
};

using time_point = std::chrono::steady_clock::time_point;

// All that is known of the processes at one time. What only tables show is added when one does.
struct sample {
    explicit sample(const host& env) : files(env) {}

    all_processes files;
    std::shared_ptr<snapshot> totals = std::make_shared<snapshot>();
    std::vector<pid_msg> rows; // of the processes in `totals`, without their rates
    time_point fresh_until;
    std::optional<std::vector<tcp_socket>> sockets;
    time_point sockets_time{}; // when they were listed, or that failed
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

pid_msg make_row(const process_status& status, std::int32_t pid) {
    pid_msg row{};
    row.pid = pid;
    row.ppid = status.ppid;
    status.comm.copy(row.comm, sizeof row.comm - 1);
    row.state = status.state;
    row.priority = to_int16(status.priority);
    row.processor = to_int16(status.processor);
    row.io_per_second = static_cast<float>(unknown);
    row.net_band = static_cast<float>(unknown);
    constexpr std::int64_t pages_max = std::numeric_limits<std::int64_t>::max() >> 24;
    row.rss = std::clamp<std::int64_t>(status.rss_pages, 0, pages_max) * page_size;
    return row;
}

// Percent of one CPU.
float usage(const process_totals& now, const base& since) {
    const std::uint64_t ticks = now.run_ticks - std::min(since.run_ticks, now.run_ticks);
    return static_cast<float>(static_cast<double>(ticks) / ticks_per_second / since.seconds * 100);
}

// The rows that fit into the table, the busiest first.
std::vector<pid_msg> choose_rows(const sample& now, const snapshot* before) {
    std::vector<std::pair<float, std::size_t>> ranks(now.rows.size()); // usage, index
    for (std::size_t i = 0; i < ranks.size(); ++i) {
        const process_totals& totals = now.totals->processes[i];
        ranks[i] = {usage(totals, base_of(totals, before, now.totals->uptime)), i};
    }
    const auto shown = std::min<std::size_t>(ranks.size(), top_pid_rows);
    std::partial_sort(ranks.begin(), ranks.begin() + static_cast<std::ptrdiff_t>(shown),
                      ranks.end(), [](const auto& a, const auto& b) {
                          return a.first != b.first ? a.first > b.first : a.second < b.second;
                      });
    std::vector<pid_msg> rows;
    for (std::size_t i = 0; i < shown; ++i) {
        rows.push_back(now.rows[ranks[i].second]);
        rows.back().process_usage = ranks[i].first;
    }
    return rows;
}

// Asks the kernel for its sockets, unless that was done for this sample.
void list_sockets(sample& now, socket_owners& owners) {
    const auto start = std::chrono::steady_clock::now();
    if (now.sockets_time != time_point{})
        return;
    std::vector<tcp_socket> sockets;
    if (list_tcp_sockets(start + network_max, sockets) == 0) {
        owners.update(sockets, start);
        now.sockets = std::move(sockets);
    }
    now.sockets_time = std::chrono::steady_clock::now();
}

// Fills in what the processes' sockets have carried since @p rates was updated before. A rate that
// cannot be known in time stays unknown.
void add_network(sample& now, socket_rates& rates, socket_owners& owners,
                 std::vector<pid_msg>& rows) {
    list_sockets(now, owners);
    if (!now.sockets)
        return;
    rates.update(*now.sockets, now.sockets_time);
    const auto start = std::chrono::steady_clock::now();
    for (pid_msg& row : rows) {
        // Without memory it is one of the kernel's own threads, or has ended.
        if (row.rss == 0) {
            row.net_band = 0;
            continue;
        }
        const auto time = std::chrono::steady_clock::now();
        if (time > start + all_descriptors_max)
            break;
        const process_totals* totals = find_process(now.totals->processes, row.pid);
        const auto* inodes =
            owners.sockets_of(now.files, row.pid, totals->start_ticks, time + descriptors_max);
        if (inodes != nullptr)
            row.net_band = static_cast<float>(rates.rate(*inodes) / 1024);
    }
}

// Deals the simulated cores' load out: on each core two of the four busiest processes work.
void add_accelerator(const board_figures& board, std::vector<pid_msg>& rows) {
    for (std::size_t core = 0; core < board.nnu_load.size() && !rows.empty(); ++core) {
        const float load = static_cast<float>(board.nnu_load[core]) / 10;
        rows[std::min(2 * core, rows.size() - 1)].nnu_usage += load * 0.75F;
        rows[std::min(2 * core + 1, rows.size() - 1)].nnu_usage += load * 0.25F;
    }
}

// Takes samples, builds tables, and remembers for each client what the previous one was made from.
class process_table {
public:
    explicit process_table(const host& env) : env_(env) {}

    int answer(std::uint8_t client_id, reply& answer) {
        if (const int error = refresh(); error < 0)
            return error;
        client& asking = clients_[client_id];
        asking.turn = ++turn_;
        if (asking.seen != latest_->totals) {
            asking.table = make_table(asking.seen.get(), asking.sockets);
            asking.seen = latest_->totals;
        }
        answer.add_record(asking.table);
        forget_others();
        return 0;
    }

    void forget(std::uint8_t client_id) { clients_.erase(client_id); }

private:
    struct client {
        std::shared_ptr<const snapshot> seen; // null before the first answer
        top_pid_info table{};                 // made from it
        socket_rates sockets;
        std::uint64_t turn = 0; // of the latest answer
    };

    // Takes a sample unless the latest one is fresh. In a tree of files, another time is another
    // capture.
    int refresh() {
        const auto start = std::chrono::steady_clock::now();
        const double uptime = read_uptime(env_);
        if (latest_ && start < latest_->fresh_until &&
            (env_.is_live() || uptime == latest_->totals->uptime))
            return 0;
        auto now = std::make_unique<sample>(env_);
        std::vector<std::int32_t> pids;
        if (const int error = now->files.list(processes_max + 1, pids); error < 0)
            return error;
        now->totals->uptime = uptime;
        now->totals->processes.reserve(pids.size());
        now->rows.reserve(pids.size());
        std::size_t looked_at = 0;
        const std::size_t most = std::min(pids.size(), processes_max);
        while (looked_at < most && std::chrono::steady_clock::now() <= start + time_max)
            add_process(*now, pids[looked_at++]);
        log_left_out(looked_at, pids.size() - looked_at);
        read_accounts(*now, start + accounts_max);
        const auto end = std::chrono::steady_clock::now();
        now->fresh_until = end + std::max<std::chrono::nanoseconds>(shared_for, end - start);
        latest_ = std::move(now);
        return 0;
    }

    // Adds nothing for a process that has ended since it was listed.
    void add_process(sample& now, std::int32_t pid) {
        process_status status;
        if (now.files.read_stat(pid, stat_) < 0 || !parse_process_stat(stat_, status))
            return;
        process_totals totals{pid, status.start_ticks, status.run_ticks, true};
        const snapshot* before = latest_ ? latest_->totals.get() : nullptr;
        totals.ran = base_of(totals, before, now.totals->uptime).run_ticks != status.run_ticks;
        now.rows.push_back(make_row(status, pid));
        now.totals->processes.push_back(totals);
    }

    // Reads a process's account unless that was done for this sample.
    void read_account(const sample& now, process_totals& totals) {
        if (totals.io_time != 0)
            return;
        totals.io_time = env_.is_live() ? read_uptime(env_) : now.totals->uptime;
        if (now.files.read_io(totals.pid, io_) == 0)
            totals.io_bytes = static_cast<double>(storage_bytes(io_));
    }

    // The kernel's own threads are many and seldom do I/O: that of one that has not run since the
    // sample before is left until it has, when its account shows it.
    bool keep_account(const sample& now, std::size_t at) {
        process_totals& totals = now.totals->processes[at];
        const process_totals* before =
            latest_ ? find_process(latest_->totals->processes, totals.pid) : nullptr;
        if (now.rows[at].rss != 0 || totals.ran || before == nullptr ||
            before->start_ticks != totals.start_ticks || std::isnan(before->io_bytes))
            return false;
        totals.io_time = now.totals->uptime;
        totals.io_bytes = before->io_bytes;
        return true;
    }

    // First of those that are likelier to be shown. Those that are not shown now may be next time.
    void read_accounts(const sample& now, time_point deadline) {
        for (const bool ran : {true, false}) {
            for (std::size_t i = 0; i < now.rows.size(); ++i) {
                process_totals& each = now.totals->processes[i];
                if (std::chrono::steady_clock::now() > deadline)
                    return;
                if (each.ran == ran && !keep_account(now, i))
                    read_account(now, each);
            }
        }
    }

    void add_io(const sample& now, const snapshot* before, std::vector<pid_msg>& rows) {
        std::vector<process_totals>& processes = now.totals->processes;
        for (pid_msg& row : rows) {
            const auto at = find_process(processes, row.pid) - processes.data();
            process_totals& totals = processes[static_cast<std::size_t>(at)];
            read_account(now, totals);
            row.io_per_second = io_rate(totals, base_of(totals, before, now.totals->uptime));
        }
    }

    top_pid_info make_table(const snapshot* before, socket_rates& sockets) {
        std::vector<pid_msg> rows = choose_rows(*latest_, before);
        add_io(*latest_, before, rows);
        if (env_.is_live())
            add_network(*latest_, sockets, owners_, rows);
        if (env_.board() != nullptr)
            add_accelerator(env_.board()->now(), rows);
        top_pid_info table{};
        table.pid_num = static_cast<std::int32_t>(rows.size());
        std::copy(rows.begin(), rows.end(), table.send_pid_info);
        return table;
    }

    void log_left_out(std::size_t looked_at, std::size_t left_out) {
        if (left_out > 0 && !left_out_)
            __android_log_print(ANDROID_LOG_ERROR, "MONSRV",
                                "processes beyond the first %zu are not in the table of busiest "
                                "ones: too many, or too slow to read\n",
                                looked_at);
        left_out_ = left_out > 0;
    }

    void forget_others() {
        while (clients_.size() > clients_max || count_samples() > samples_max)
            clients_.erase(std::min_element(
                clients_.begin(), clients_.end(),
                [](const auto& a, const auto& b) { return a.second.turn < b.second.turn; }));
    }
    std::size_t count_samples() const {
        std::set<const snapshot*> all;
        for (const auto& each : clients_)
            all.insert(each.second.seen.get());
        return all.size();
    }

    const host& env_;
    std::unique_ptr<sample> latest_;
    std::map<std::uint8_t, client> clients_;
    socket_owners owners_;
    std::uint64_t turn_ = 0;
    bool left_out_ = false; // from the latest sample
    std::string stat_;      // kept to be reused
    std::string io_;
};

void install(sampler_table& table, const host& env) {
    auto processes = std::make_shared<process_table>(env);
    const std::size_t thread = table.add_slow_thread();
    table.on_slow(thread, cpu_command, cpu_request::busiest_processes,
                  [processes](const request& asked, reply& answer) {
                      return processes->answer(asked.client_id, answer);
                  });
    table.on_client_gone([processes](std::uint8_t id) { processes->forget(id); }, thread);
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
