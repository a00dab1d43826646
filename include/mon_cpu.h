// Process records: one process's status and I/O accounting, and the wire records of the table of
// busiest processes.
#ifndef MONCL_MON_CPU_H
#define MONCL_MON_CPU_H

#include "common_func.h"

/// One process's kernel status line, /proc/PID/stat, in the kernel's field order.
struct process_stat {
    std::int32_t pid;
    char comm[16]; ///< command name with its parentheses, cut to 15 characters
    char state;
    std::int32_t ppid;
    std::int32_t pgid;
    std::int32_t session;
    std::int32_t tty_nr;
    std::int32_t tpgid;
    std::uint32_t flags;
    std::uint64_t minflt;
    std::uint64_t cminflt;
    std::uint64_t majflt;
    std::uint64_t cmajflt;
    std::uint64_t utime; ///< clock ticks
    std::uint64_t stime; ///< clock ticks
    std::int64_t cutime;
    std::int64_t cstime;
    std::int64_t priority;
    std::int64_t nice;
    std::int64_t num_threads;
    std::int64_t itrealvalue;
    std::uint64_t starttime;
    std::uint64_t vsize;
    std::int64_t rss; ///< pages
    std::uint64_t rsslim;
    std::uint64_t startcode;
    std::uint64_t endcode;
    std::uint64_t startstack;
    std::uint64_t kstkesp;
    std::uint64_t kstkeip;
    std::uint64_t signal;
    std::uint64_t blocked;
    std::uint64_t sigignore;
    std::uint64_t sigcatch;
    std::uint64_t wchan;
    std::uint64_t nswap;
    std::uint64_t cnswap;
    std::int32_t exit_signal;
    std::int32_t processor;
    std::uint32_t rt_priority;
    std::uint32_t policy;
    std::uint64_t delayacct_blkio_ticks;
};

/// One process's I/O accounting, /proc/PID/io; bytes and system calls since its start.
struct process_io {
    std::uint64_t rchar;
    std::uint64_t wchar;
    std::uint64_t syscr;
    std::uint64_t syscw;
    std::uint64_t read_bytes;
    std::uint64_t write_bytes;
    std::uint64_t cancelled_write_bytes;
};

/// One row of the table of busiest processes.
struct pid_msg {
    std::int32_t pid;
    std::int32_t ppid;
    char comm[16]; ///< command name, NUL-terminated unless it fills the field
    char state;
    std::int16_t priority;
    std::int16_t processor;
    float io_per_second;                  ///< KB/s
    float process_usage;                  ///< percent of one CPU
    float net_band;                       ///< KB/s
    float nnu_usage;                      ///< percent
    std::int64_t rss MONCL_READ_IN_PLACE; ///< bytes
};
static_assert(sizeof(pid_msg) == 56 && alignof(pid_msg) == 4);
static_assert(offsetof(pid_msg, state) == 24 && offsetof(pid_msg, priority) == 26);
static_assert(offsetof(pid_msg, processor) == 28 && offsetof(pid_msg, io_per_second) == 32);
static_assert(offsetof(pid_msg, nnu_usage) == 44 && offsetof(pid_msg, rss) == 48);

/// Rows of `top_pid_info`.
inline constexpr int top_pid_rows = 146;

/// The table of busiest processes: the payload of its answer, little-endian.
struct top_pid_info {
    std::int32_t pid_num; ///< rows in use
    std::int32_t padding;
    pid_msg send_pid_info[top_pid_rows];
};
static_assert(sizeof(top_pid_info) == 8184 && alignof(top_pid_info) == 4);
static_assert(offsetof(top_pid_info, send_pid_info) == 8);
static_assert(sizeof(top_pid_info) <= answer_payload_max);

#endif
