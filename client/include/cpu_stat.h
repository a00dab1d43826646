// CPU usage: the times of every CPU and their shares.
#ifndef MONCL_CPU_STAT_H
#define MONCL_CPU_STAT_H

#include "moncl_export.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

/// One CPU's times, in the server's clock ticks, and its shares of the time since the previous
/// sample, in percent.
class cpu_stat {
public:
    // Not defaulted: std::make_shared would clear the record twice.
    cpu_stat() noexcept {}

    std::string cpu; ///< "cpu" for all CPUs together, "cpu0", "cpu1" ... for single ones
    std::uint64_t user = 0;
    std::uint64_t nice = 0;
    std::uint64_t system = 0;
    std::uint64_t idle = 0;
    std::uint64_t iowait = 0;
    std::uint64_t irq = 0;
    std::uint64_t softirq = 0;
    std::uint64_t steal = 0;
    std::uint64_t guest = 0;
    std::uint64_t guest_nice = 0;
    std::uint64_t total_delta = 0; ///< growth of the sum of `user` to `steal`
    double cpu_usage = 0;          ///< everything but idle; NaN if no time passed, like the others
    double iowait_ratio = 0;
    double sys_ratio = 0;
    double user_ratio = 0;
    double irq_ratio = 0;
    double sirq_ratio = 0;
};

/// Decodes the CPU-time table, the text of /proc/stat, and computes usages against the previous
/// sample.
class MONCL_API cpus_stats_parser {
public:
    /// Decodes @p msg; `last_stats` becomes the new sample.
    /// @return 1; 0 if decoding failed, which leaves `last_stats` alone
    int parse_cpu_stats(unsigned char* msg);
    /// Appends a record for each "cpu" line of @p text to `stats`, which must not be null, and
    /// computes the usages of those that `last_stats` has a record for at the same position.
    /// @return 1; 0 after an exception, which has been written to standard output
    int parse_sys_stat(const std::string& text);
    /// Fills @p cur's `total_delta` and percentages. A counter that runs backwards gives a huge
    /// `cpu_usage` or `iowait_ratio`, but a negative share of the others.
    void cal_cpu_usage(std::shared_ptr<cpu_stat> cur, std::shared_ptr<cpu_stat> prev);
    /// Writes one row of the usage report, without its line end. Leaves @p os left-adjusted, fixed,
    /// at precision 2.
    void show_all_times(std::shared_ptr<cpu_stat> stat, std::ostream& os);

    /// The latest sample, in the order of its lines; null before the first.
    std::unique_ptr<std::vector<std::shared_ptr<cpu_stat>>> last_stats;
    /// The sample being decoded; null between calls.
    std::unique_ptr<std::vector<std::shared_ptr<cpu_stat>>> stats;

private:
    MONCL_LOCAL int take_sample(std::string_view text);
};

#endif
