// Bytes and rates of network devices and of registered processes.
#ifndef MONCL_NET_STAT_H
#define MONCL_NET_STAT_H

#include "moncl_export.h"

#include <cstdint>
#include <unordered_map>

/// Bytes of one network device or process.
struct net_stat {
    char dev_name[16] = {};  ///< device name, at most 15 characters; unused for processes
    std::uint64_t total = 0; ///< cumulative bytes
    double rate = 0;         ///< bytes per second over the last interval
};

/// Keeps the bytes of every network device and of the registered processes.
class MONCL_API net_stat_parse {
public:
    /// Decodes one bandwidth answer. Records past the end of the payload are ignored. A process
    /// that is not registered is logged and skipped.
    /// @param delta_ms time since the previous bandwidth answer; 0 if there was none, and all rates
    ///                 are then 0
    /// @return 1
    int parse_net_stat(unsigned char* msg, unsigned long delta_ms);

    std::unordered_map<int, net_stat> dev_result; ///< by position in the answer
    std::unordered_map<int, net_stat> pid_result; ///< by process id; registered by the manager
};

#endif
