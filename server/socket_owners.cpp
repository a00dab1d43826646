// Keeping the sockets of processes.
#include "socket_owners.h"

#include "process_network.h"

#include <algorithm>

namespace monsrv {

void socket_owners::update(const std::vector<tcp_socket>& sockets, time_point now) {
    const bool all_known = std::all_of(sockets.begin(), sockets.end(), [this](const auto& each) {
        return known_.count(each.cookie) != 0;
    });
    if (all_known && now - begun_ < keep)
        return;
    processes_.clear();
    known_.clear();
    for (const tcp_socket& each : sockets)
        known_.insert(each.cookie);
    begun_ = now;
}

const std::vector<std::uint32_t>* socket_owners::sockets_of(const all_processes& files,
                                                            std::int32_t pid,
                                                            std::uint64_t start_ticks,
                                                            time_point deadline) {
    const auto [known, is_new] = processes_.try_emplace(pid, held{start_ticks, {}});
    held& process = known->second;
    if (is_new || process.start_ticks != start_ticks || !process.inodes) {
        std::vector<std::uint32_t> inodes;
        process = {start_ticks, {}};
        if (list_socket_inodes(files.open_descriptors(pid), deadline, inodes) == 0)
            process.inodes = std::move(inodes);
    }
    return process.inodes ? &*process.inodes : nullptr;
}

} // namespace monsrv
