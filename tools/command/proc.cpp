// moncl proc: status and I/O of chosen processes.
#include "cpu_stat_manager.h"

#include "recovery.h"
#include "session.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace tools {
namespace {

// One process, as long as its server knows it.
struct watched_process {
    std::shared_ptr<process_stat_parser> status;
    std::shared_ptr<process_io_parser> io;
    bool ended = false;
    bool io_refused = false;
};

// The rates of the parser are over whole seconds, and steady only at intervals of several.
void refine_rates(process_io_parser& io, const process_io& before, timeval before_time) {
    const double seconds = static_cast<double>(time_diff_us(before_time, io.last_time)) * 1e-6;
    if (seconds <= 0)
        return;
    auto rate = [seconds](std::uint64_t from, std::uint64_t to) {
        return to > from ? static_cast<double>(to - from) / 1024 / seconds : 0;
    };
    io.rd_per_second = rate(before.read_bytes, io.last_pio->read_bytes);
    io.wr_per_second = rate(before.write_bytes, io.last_pio->write_bytes);
}

// Asks for one process after the other, so that one the server refuses does not hide the rest.
class process_watch {
public:
    process_watch(session& asking, cpu_stat_manager& manager, const std::vector<int>& pids)
        : asking_(asking), manager_(manager) {
        // Usage is a share of what all CPUs can do: count them first.
        manager.get_cpu_usage(nullptr);
        for (const int pid : pids) {
            manager.add_stat_monitor_process(pid);
            manager.add_io_monitor_process(pid);
            processes_.push_back({manager.stat_parser.back(), manager.io_parser.back()});
        }
    }

    /// @return 0 or more, or the code of a query without an answer
    int report(std::ostream* out) {
        for (watched_process& each : processes_) {
            int code = each.ended ? 0 : report_status(each, out);
            if (code >= 0 && !each.ended && !each.io_refused)
                code = report_io(each, out);
            if (code < 0)
                return code;
        }
        return 0;
    }

    bool all_ended() const {
        return std::all_of(processes_.begin(), processes_.end(),
                           [](const watched_process& each) { return each.ended; });
    }

    /// Whether the server has refused anything.
    bool refused() const { return refused_; }

private:
    int report_status(watched_process& process, std::ostream* out) {
        const int code = manager_.get_process_info(3, process.status, nullptr);
        if (code < 0)
            return refuse(process, "process ", code);
        if (out != nullptr)
            manager_.show_result(process.status, *out);
        return code;
    }

    int report_io(watched_process& process, std::ostream* out) {
        process_io_parser& io = *process.io;
        const timeval before_time = io.last_time;
        const bool compares = io.last_pio != nullptr;
        const process_io before = compares ? *io.last_pio : process_io{};
        const int code = manager_.get_process_info(4, process.io, nullptr);
        if (code < 0)
            return refuse(process, "I/O of process ", code);
        if (compares)
            refine_rates(io, before, before_time);
        if (out != nullptr)
            manager_.show_result(process.io, *out);
        return code;
    }

    // Says once what the server answers, and does not ask for it again.
    int refuse(watched_process& process, const char* what, int code) {
        if (!answered(*manager_.client, code))
            return code;
        asking_.err() << "moncl: " << what << process.status->pid << ": " << std::strerror(-code)
                      << std::endl;
        refused_ = true;
        process.io_refused = true;
        process.ended = code == -ESRCH;
        return 0;
    }

    session& asking_;
    cpu_stat_manager& manager_;
    std::vector<watched_process> processes_;
    bool refused_ = false;
};

command_action configure(CLI::App& app) {
    auto pids = std::make_shared<std::vector<int>>();
    app.add_option("PID", *pids, "Processes to watch")
        ->required()
        ->check(CLI::Range(1, std::numeric_limits<int>::max()));
    return [pids, when = add_schedule(app, schedule_form::options_only)](session& asking) {
        cpu_stat_manager manager(asking.new_connection());
        process_watch watch(asking, manager, *pids);
        const int status =
            asking.repeat(*when, {[&](std::ostream* out) { return watch.report(out); },
                                  {manager.client},
                                  true,
                                  nullptr,
                                  [&] { return watch.all_ended(); }});
        return watch.refused() ? exit_failed : status;
    };
}

const command_registration registered("proc", "Status and I/O of chosen processes", configure);

} // namespace
} // namespace tools
