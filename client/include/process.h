// Processes: one that is watched, its I/O, and the table of the busiest. Their records are in
// mon_cpu.h.
#ifndef MONCL_PROCESS_H
#define MONCL_PROCESS_H

#include "mon_cpu.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

/// Decodes one process's status line, the text of /proc/PID/stat, and computes its CPU usage.
class MONCL_API process_stat_parser {
public:
    /// @param pid      process to watch
    /// @param cpus_num the manager's CPU count, with which the `ticks` of its calls are multiplied
    process_stat_parser(int pid, int cpus_num);

    /// Decodes @p msg, which becomes the previous sample of the next call.
    /// @param ticks CPU count times elapsed time, in 1/100 s; 0 for the first sample
    /// @return 1; 0 after an exception, which has been written to standard output
    unsigned int parse_process_stat(unsigned char* msg, unsigned int ticks);
    /// Sets `process_usage` from @p cur and the previous sample; without one, or with @p ticks 0,
    /// it stays.
    void cal_process_usage(process_stat* cur, unsigned int ticks);
    /// User and system time of @p ps, in clock ticks, cut to 32 bits.
    int process_run_time(process_stat* ps);

    pid_t pid;
    std::int32_t processor = 0; ///< CPU last run on
    char state = 0;             ///< state letter
    double process_usage = 0;   ///< percent of one CPU
    std::uint64_t rss = 0;      ///< resident pages
    std::int64_t priority = 0;  ///< kernel priority
    timeval last_time{};        ///< receipt of the previous answer
    std::int32_t cpus_num;
    std::unique_ptr<process_stat> last_process_stat; ///< previous sample; null before the first
};

/// Decodes one process's I/O accounting, the text of /proc/PID/io, and computes its rates.
class MONCL_API process_io_parser {
public:
    /// @param pid process to watch
    explicit process_io_parser(int pid);

    /// Decodes @p msg, which becomes the previous sample of the next call.
    /// @param elapsed_ms time since the previous answer; 0 for the first
    /// @return 1; 0 after an exception, which has been written to standard output and leaves all as
    ///         it was
    int parse_process_io(unsigned char* msg, unsigned int elapsed_ms);
    /// The values of @p text, lines of "key: value", by key.
    /// @throws std::invalid_argument "stol" for a value that is not a number, std::out_of_range
    ///         "stol" for one that is too large
    std::unordered_map<std::string, long> parse_process_io_file(const std::string& text);
    /// Sets the rates from @p cur and the previous sample; without one, or within the first second
    /// after it, they stay.
    void cal_process_io_usage(process_io* cur, unsigned int elapsed_ms);

    pid_t pid;
    double rd_per_second = 0;             ///< KiB/s read from storage, over whole seconds
    double wr_per_second = 0;             ///< KiB/s written to storage, over whole seconds
    timeval last_time{};                  ///< receipt of the previous answer
    std::unique_ptr<process_io> last_pio; ///< previous sample; null before the first
};

/// Gives access to the server's table of busiest processes.
class MONCL_API process_all_parser {
public:
    /// Points `pid_info` at @p msg; copies nothing.
    void parse_process_all(unsigned char* msg);

    std::int32_t pid = 0; ///< value sent with the request
    /// The latest table, in the connection's receive buffer: valid until that connection receives
    /// again; null before the first.
    top_pid_info* pid_info = nullptr;
};

#endif
