// System-wide performance counting. The record of the counters is in common_func.h.
#ifndef MONCL_PERF_STAT_H
#define MONCL_PERF_STAT_H

#include "common_func.h"

#include <cstdint>

/// Keeps the state of system-wide performance counting and a view of the latest counters.
class MONCL_API perf_stat_parser {
public:
    /// Points `counters` at @p msg; copies nothing.
    /// @return 1
    int parse_perf_stat(unsigned char* msg);

    std::int64_t during_ms = -1; ///< from the answer before to the latest counters; -1 before any
    bool enabled = false;        ///< counting is on, as the server last acknowledged
    timeval timestamp{};         ///< receipt of the latest answer
    /// The latest counters, in the connection's receive buffer: valid until that connection
    /// receives again; null before the first.
    perf_counters* counters = nullptr;
};

#endif
