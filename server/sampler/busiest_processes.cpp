// The table of busiest processes.
//
// Clients share samples. Each client gets rates since the sample of its previous answer.
#include "mon_cpu.h"
#include "process_network.h"
#include "process_samples.h"
#include "sampler.h"
#include "socket_owners.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <unistd.h>

namespace monsrv {
namespace {

// Limits of time for looking at the shown processes' sockets: for the descriptors of one process,
// for those of all, and for these together with the kernel's list of sockets.
constexpr std::chrono::milliseconds descriptors_max{10};
constexpr std::chrono::milliseconds all_descriptors_max{60};
constexpr std::chrono::milliseconds network_max{100};
// Clients whose previous answer is remembered, and the samples that these were answered from; the
// client that asked longest ago makes room.
constexpr std::size_t clients_max = 128;
constexpr std::size_t samples_max = 32;

// A sample that takes this long is taken before somebody asks.
constexpr std::chrono::milliseconds worth_taking_ahead{25};

const double ticks_per_second = static_cast<double>(sysconf(_SC_CLK_TCK));

// The process @p pid in @p snapshot; null if it is not there.
template<class Snapshot>
auto find_process(Snapshot& snapshot, std::int32_t pid) -> decltype(snapshot.processes.data()) {
    const auto found = std::lower_bound(
        snapshot.processes.begin(), snapshot.processes.end(), pid,
        [](const process_totals& each, std::int32_t wanted) { return each.pid < wanted; });
    return found != snapshot.processes.end() && found->pid == pid ? &*found : nullptr;
}

// KB per second, or not a number if the bytes of now or of before are not known.
float io_rate(const process_totals& now, const process_base& since) {
    // In this order, std::max passes on what is not a number.
    const double bytes = std::max(now.io_bytes - since.io_bytes, 0.0);
    return static_cast<float>(bytes / 1024 / (now.io_time - since.io_time));
}

// Percent of one CPU.
float usage(const process_totals& now, const process_base& since) {
    const std::uint64_t ticks = now.run_ticks - std::min(since.run_ticks, now.run_ticks);
    return static_cast<float>(static_cast<double>(ticks) / ticks_per_second / since.seconds * 100);
}

// The rows that fit into the table, the busiest first.
std::vector<pid_msg> choose_rows(const process_sample& now, const process_snapshot* before) {
    process_cursor known(before);
    std::vector<std::pair<float, std::size_t>> ranks(now.rows.size()); // usage, index
    for (std::size_t i = 0; i < ranks.size(); ++i) {
        const process_totals& totals = now.totals->processes[i];
        const process_base since =
            base_of(totals, before, known.find(totals.pid), now.totals->uptime);
        ranks[i] = {usage(totals, since), i};
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
void list_sockets(process_sample& now, socket_owners& owners) {
    const auto start = std::chrono::steady_clock::now();
    if (now.sockets_time != process_sample::clock::time_point{})
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
void add_network(process_sample& now, socket_rates& rates, socket_owners& owners,
                 std::vector<pid_msg>& rows) {
    list_sockets(now, owners);
    if (!now.sockets)
        return;
    rates.update(*now.sockets, now.sockets_time);
    const auto start = std::chrono::steady_clock::now();
    for (pid_msg& row : rows) {
        // A process without memory is one of the kernel's own threads, or has ended.
        if (row.rss == 0) {
            row.net_band = 0;
            continue;
        }
        const auto time = std::chrono::steady_clock::now();
        if (time > start + all_descriptors_max)
            break;
        const process_totals* totals = find_process(*now.totals, row.pid);
        const auto* inodes =
            owners.sockets_of(now.files, row.pid, totals->start_ticks, time + descriptors_max);
        if (inodes != nullptr)
            row.net_band = static_cast<float>(rates.rate(*inodes) / 1024);
    }
}

// Distributes the simulated cores' load: on each core two of the four busiest processes work.
void add_accelerator(const board_figures& board, std::vector<pid_msg>& rows) {
    for (std::size_t core = 0; core < board.nnu_load.size() && !rows.empty(); ++core) {
        const float load = static_cast<float>(board.nnu_load[core]) / 10;
        rows[std::min(2 * core, rows.size() - 1)].nnu_usage += load * 0.75F;
        rows[std::min(2 * core + 1, rows.size() - 1)].nnu_usage += load * 0.25F;
    }
}

// A table, and what the next one of those who got it is made from.
struct answered {
    std::shared_ptr<const process_snapshot> totals;
    socket_rates sockets;
    top_pid_info table{};
};

// Builds tables, and remembers for each client what the previous one was made from.
class process_table {
public:
    explicit process_table(const host& env)
        : env_(env), samples_(env, env.is_live() ? worth_taking_ahead
                                                 : process_samples::clock::duration::max()) {}

    int answer(std::uint8_t client_id, reply& answer) {
        std::shared_ptr<process_sample> now;
        if (const int error = samples_.get(client_id, now); error < 0)
            return error;
        if (now != now_)
            tables_.clear();
        now_ = std::move(now);
        client& asking = clients_[client_id];
        asking.turn = ++turn_;
        if (asking.previous == nullptr || asking.previous->totals != now_->totals)
            asking.previous = table_after(asking.previous.get());
        answer.add_record(asking.previous->table);
        forget_others();
        return 0;
    }

    void forget(std::uint8_t client_id) {
        clients_.erase(client_id);
        samples_.forget(client_id);
    }

private:
    struct client {
        std::shared_ptr<const answered> previous; // null before the first answer
        std::uint64_t turn = 0;                   // of the latest answer
    };

    // The table of the latest sample for clients whose previous answer was made from the same one:
    // they get the same.
    std::shared_ptr<const answered> table_after(const answered* previous) {
        std::shared_ptr<const answered>& known =
            tables_[previous != nullptr ? previous->totals : nullptr];
        if (known == nullptr)
            known = make_table(previous);
        return known;
    }

    void add_io(const process_snapshot* before, std::vector<pid_msg>& rows) {
        for (pid_msg& row : rows) {
            process_totals& totals = *find_process(*now_->totals, row.pid);
            read_account(env_, *now_, totals, io_);
            const process_totals* known =
                before != nullptr ? find_process(*before, row.pid) : nullptr;
            row.io_per_second =
                io_rate(totals, base_of(totals, before, known, now_->totals->uptime));
        }
    }

    std::shared_ptr<const answered> make_table(const answered* previous) {
        const process_snapshot* before = previous != nullptr ? previous->totals.get() : nullptr;
        auto made = std::make_shared<answered>();
        made->totals = now_->totals;
        if (previous != nullptr)
            made->sockets = previous->sockets;
        std::vector<pid_msg> rows = choose_rows(*now_, before);
        add_io(before, rows);
        if (env_.is_live())
            add_network(*now_, made->sockets, owners_, rows);
        if (env_.board() != nullptr)
            add_accelerator(env_.board()->now(), rows);
        made->table.pid_num = static_cast<std::int32_t>(rows.size());
        std::copy(rows.begin(), rows.end(), made->table.send_pid_info);
        return made;
    }

    void forget_others() {
        while (clients_.size() > clients_max || count_samples() > samples_max)
            clients_.erase(std::min_element(
                clients_.begin(), clients_.end(),
                [](const auto& a, const auto& b) { return a.second.turn < b.second.turn; }));
    }
    std::size_t count_samples() const {
        std::set<const process_snapshot*> all;
        for (const auto& each : clients_)
            all.insert(each.second.previous->totals.get());
        return all.size();
    }

    const host& env_;
    process_samples samples_;
    std::shared_ptr<process_sample> now_; // the latest
    // Made from it, by the sample of the answers before.
    std::map<std::shared_ptr<const process_snapshot>, std::shared_ptr<const answered>> tables_;
    std::map<std::uint8_t, client> clients_;
    socket_owners owners_;
    std::uint64_t turn_ = 0;
    std::string io_; // kept to be reused
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
