// Taking samples of all processes. Reading the kernel's files is what costs.
#include "process_sample.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <sstream>
#include <unistd.h>

namespace monsrv {

namespace {
using time_point = process_sample::clock::time_point;

// What one sample may cost: beyond these the processes of the highest ids are left out.
constexpr std::size_t processes_max = 32768;
constexpr std::chrono::milliseconds time_max{500};
// When no more I/O accounts are read for a sample, other than of processes that are shown.
constexpr std::chrono::milliseconds accounts_max{100};

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
const double ticks_per_second = static_cast<double>(sysconf(_SC_CLK_TCK));
const std::int64_t page_size = sysconf(_SC_PAGESIZE);

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

// Reads what one sample holds.
class sampling {
public:
    sampling(const host& env, const process_snapshot* before, process_sample& sample)
        : env_(env), before_(before), now_(sample) {}

    int run() {
        now_.start = process_sample::clock::now();
        now_.totals->uptime = read_uptime(env_);
        std::vector<std::int32_t> pids;
        if (const int error = now_.files.list(processes_max + 1, pids); error < 0)
            return error;
        now_.totals->processes.reserve(pids.size());
        now_.rows.reserve(pids.size());
        const std::size_t most = std::min(pids.size(), processes_max);
        std::size_t looked_at = 0;
        process_cursor known(before_);
        while (looked_at < most && process_sample::clock::now() <= now_.start + time_max)
            add_process(pids[looked_at++], known);
        now_.left_out = pids.size() - looked_at;
        read_accounts(now_.start + accounts_max);
        now_.end = process_sample::clock::now();
        return 0;
    }

private:
    // Adds nothing for a process that has ended since it was listed.
    void add_process(std::int32_t pid, process_cursor& known) {
        process_status status;
        if (now_.files.read_stat(pid, text_) < 0 || !parse_process_stat(text_, status))
            return;
        process_totals totals{pid, status.start_ticks, status.run_ticks, true};
        const process_base since = base_of(totals, before_, known.find(pid), now_.totals->uptime);
        totals.ran = since.run_ticks != status.run_ticks;
        now_.rows.push_back(make_row(status, pid));
        now_.totals->processes.push_back(totals);
    }

    // Keeps the account of the sample before where reading it again gains nothing, and returns
    // whether it did. The kernel's own threads are many and seldom do I/O, so the account of such a
    // thread is read again only once the thread has run. An account that was refused is tried again
    // only once its process has run, because it may then belong to another user.
    bool keep_account(process_totals& totals, const pid_msg& row, const process_totals* known) {
        if (totals.ran || known == nullptr || known->start_ticks != totals.start_ticks ||
            !(known->io_refused || (row.rss == 0 && !std::isnan(known->io_bytes))))
            return false;
        totals.io_time = now_.totals->uptime;
        totals.io_bytes = known->io_bytes;
        totals.io_refused = known->io_refused;
        return true;
    }

    // Reads the accounts of processes that ran first, because these are likelier to be shown. The
    // others are read as well, because they may be shown next time.
    void read_accounts(time_point deadline) {
        for (const bool ran : {true, false}) {
            process_cursor known(before_);
            for (std::size_t i = 0; i < now_.rows.size(); ++i) {
                process_totals& each = now_.totals->processes[i];
                if (process_sample::clock::now() > deadline)
                    return;
                if (each.ran == ran && !keep_account(each, now_.rows[i], known.find(each.pid)))
                    read_account(env_, now_, each, text_);
            }
        }
    }

    const host& env_;
    const process_snapshot* before_;
    process_sample& now_;
    std::string text_; // kept to be reused
};
} // namespace

double read_uptime(const host& env) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    double uptime = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    std::string text;
    if (!env.is_live() && env.read("/proc/uptime", text) == 0)
        std::istringstream(text) >> uptime;
    return uptime;
}

const process_totals* process_cursor::find(std::int32_t pid) {
    if (snapshot_ == nullptr)
        return nullptr;
    const std::vector<process_totals>& all = snapshot_->processes;
    while (at_ < all.size() && all[at_].pid < pid)
        ++at_;
    return at_ < all.size() && all[at_].pid == pid ? &all[at_] : nullptr;
}

// Rates are counted from the answer before this one, or from the process's start if there was none.
// So the first table already ranks processes by their averages since they started, and a tree of
// files shows more than zeros.
process_base base_of(const process_totals& now, const process_snapshot* before,
                     const process_totals* known, double uptime) {
    const double tick = 1 / ticks_per_second;
    const double started = static_cast<double>(now.start_ticks) * tick;
    if (before != nullptr && uptime > before->uptime) {
        const double elapsed = uptime - before->uptime;
        if (known != nullptr && known->start_ticks == now.start_ticks)
            return {elapsed, known->run_ticks, known->io_bytes, known->io_time};
        if (started + tick > before->uptime)
            return {elapsed, 0, 0, before->uptime};
    }
    const double age = std::max(uptime - started, tick);
    return {age, 0, 0, uptime - age};
}

int take_process_sample(const host& env, const process_snapshot* before,
                        std::shared_ptr<process_sample>& taken) {
    auto sample = std::make_shared<process_sample>(env);
    const int error = sampling(env, before, *sample).run();
    if (error == 0)
        taken = std::move(sample);
    return error;
}

void read_account(const host& env, const process_sample& sample, process_totals& totals,
                  std::string& text) {
    if (totals.io_time != 0)
        return;
    totals.io_time = env.is_live() ? read_uptime(env) : sample.totals->uptime;
    const int error = sample.files.read_io(totals.pid, text);
    totals.io_refused = error == -EACCES;
    if (error == 0)
        totals.io_bytes = static_cast<double>(storage_bytes(text));
}

} // namespace monsrv
