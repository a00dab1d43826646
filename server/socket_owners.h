// Which sockets processes hold, without listing all their descriptors each time.
#ifndef MONSRV_SOCKET_OWNERS_H
#define MONSRV_SOCKET_OWNERS_H

#include "process_files.h"
#include "tcp_sockets.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <unordered_set>
#include <vector>

namespace monsrv {

/// Keeps the sockets of processes until the kernel lists a new socket, which any of the processes
/// may have opened. A socket that was handed from one process to another is found after `keep`.
class socket_owners {
public:
    using time_point = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::seconds keep{10};

    /// Takes in the kernel's list @p sockets of the time @p now.
    void update(const std::vector<tcp_socket>& sockets, time_point now);
    /// The inodes of the sockets of the process @p pid that was started at @p start_ticks.
    /// @param deadline when to give up listing its descriptors
    /// @return null if they cannot be known; valid until the next call of `update`
    const std::vector<std::uint32_t>* sockets_of(const all_processes& files, std::int32_t pid,
                                                 std::uint64_t start_ticks, time_point deadline);

private:
    struct held {
        std::uint64_t start_ticks;
        std::optional<std::vector<std::uint32_t>> inodes;
    };
    std::map<std::int32_t, held> processes_;
    std::unordered_set<std::uint64_t> known_; // cookies listed when `processes_` was begun
    time_point begun_{};
};

} // namespace monsrv

#endif
