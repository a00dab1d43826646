// One look at all processes: their totals, and what a table shows of them.
#ifndef MONSRV_PROCESS_SAMPLE_H
#define MONSRV_PROCESS_SAMPLE_H

#include "host.h"
#include "mon_cpu.h"
#include "process_files.h"
#include "tcp_sockets.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace monsrv {

/// The running totals of one process.
struct process_totals {
    std::int32_t pid;
    std::uint64_t start_ticks; ///< tells a process from an earlier one of the same id
    std::uint64_t run_ticks;
    bool ran;                ///< since the sample before
    bool io_refused = false; ///< its I/O account may not be read
    /// Bytes read and written; not a number if they were not read.
    double io_bytes = std::numeric_limits<double>::quiet_NaN();
    double io_time = 0; ///< of reading them, in seconds since boot; 0 before that
};

/// What rates are counted from.
struct process_snapshot {
    double uptime = 0;                     ///< seconds since boot
    std::vector<process_totals> processes; ///< by id
};

/// All that is known of the processes at one time. What only tables show is added when one does.
struct process_sample {
    using clock = std::chrono::steady_clock;

    explicit process_sample(const host& env) : files(env) {}
    clock::duration cost() const { return end - start; }

    all_processes files;
    std::shared_ptr<process_snapshot> totals = std::make_shared<process_snapshot>();
    std::vector<pid_msg> rows; ///< of the processes in `totals`, without their rates
    std::size_t left_out = 0;  ///< processes that are not in `totals`
    clock::time_point start;   ///< of taking it
    clock::time_point end;
    std::optional<std::vector<tcp_socket>> sockets;
    clock::time_point sockets_time{}; ///< when they were listed, or that failed
};

/// The time that a process's figures are an average over, and the totals at its start.
struct process_base {
    double seconds;
    std::uint64_t run_ticks;
    double io_bytes;
    double io_time;
};

/// The clock that start times are counted on, in seconds since boot. A tree of files has stopped
/// with its own.
double read_uptime(const host& env);

/// Goes through a snapshot's processes by ascending id.
class process_cursor {
public:
    /// @param snapshot may be null, and outlives this otherwise
    explicit process_cursor(const process_snapshot* snapshot) : snapshot_(snapshot) {}
    /// The process @p pid; null if it is not there. No id may be less than that of the call before.
    const process_totals* find(std::int32_t pid);

private:
    const process_snapshot* snapshot_;
    std::size_t at_ = 0;
};

/// What the rates of @p now, at @p uptime, are counted from: its totals in @p before, or its start
/// if it started later or @p before is null.
/// @param known the same process in @p before, or one of the same id, or null
process_base base_of(const process_totals& now, const process_snapshot* before,
                     const process_totals* known, double uptime);

/// Takes a sample. Of more processes than 32768, and of those that cannot be read in 500 ms, it
/// leaves out those of the highest ids.
/// @param before the sample before, which spares reading some I/O accounts; may be null
/// @return 0, or a negated errno, which leaves @p taken as it is
int take_process_sample(const host& env, const process_snapshot* before,
                        std::shared_ptr<process_sample>& taken);

/// Reads a process's I/O account unless that was done for this sample.
/// @param totals of @p sample
/// @param text a buffer, kept to be reused
void read_account(const host& env, const process_sample& sample, process_totals& totals,
                  std::string& text);

} // namespace monsrv

#endif
