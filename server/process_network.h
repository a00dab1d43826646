// What the TCP sockets of processes have carried: as a total, and as a rate between two looks.
#ifndef MONSRV_PROCESS_NETWORK_H
#define MONSRV_PROCESS_NETWORK_H

#include "tcp_sockets.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <vector>

namespace monsrv {

/// Lists the inodes of all sockets that a process holds in @p inodes, in ascending order.
/// @param descriptors its folder /proc/PID/fd, open, which this closes; or a negated errno
/// @return 0, or a negated errno; then @p inodes has only some of them: -ESRCH if the process
/// ended,
///         -EACCES if it may not be looked into, -ETIMEDOUT if that takes longer than @p deadline
int list_socket_inodes(int descriptors, std::chrono::steady_clock::time_point deadline,
                       std::vector<std::uint32_t>& inodes);

/// The bytes that one process has carried, as far as its sockets were seen. No socket is counted
/// twice: a socket leaves the list only when the process has closed it and the kernel lists it no
/// more, and the kernel uses no cookie again.
class process_traffic {
public:
    /// Takes in what the process holds.
    /// @param inodes  of `list_socket_inodes`
    /// @param all     whether they are all it holds; otherwise none counts as closed
    /// @param sockets a whole list of `list_tcp_sockets`, taken after @p inodes
    void update(const std::vector<std::uint32_t>& inodes, bool all,
                const std::vector<tcp_socket>& sockets);

    /// Bytes of all sockets seen so far. Never falls.
    std::uint64_t total() const;

private:
    struct seen_socket {
        std::uint32_t inode;
        std::uint64_t bytes;
    };
    std::map<std::uint64_t, seen_socket> open_; // by cookie
    std::uint64_t closed_ = 0;
};

/// Rates of processes' sockets since an earlier list of all sockets.
class socket_rates {
public:
    using clock = std::chrono::steady_clock;

    /// Takes in a whole list of `list_tcp_sockets`, taken @p now. The list before becomes what
    /// rates are counted from.
    void update(std::vector<tcp_socket> sockets, clock::time_point now);

    /// Bytes per second of the sockets @p inodes between the latest two lists; not a number if
    /// there were not two. A socket that is only in the later one counts from 0.
    double rate(const std::vector<std::uint32_t>& inodes) const;

private:
    struct old_socket {
        std::uint64_t cookie;
        std::uint64_t bytes;
        bool missed; // by the latest list; the kernel may miss one while others close
    };
    std::uint64_t bytes_before(std::uint64_t cookie) const;

    std::vector<old_socket> before_; // by cookie
    std::vector<tcp_socket> sockets_;
    clock::time_point time_{};
    double seconds_ = 0; // between the lists; 0 if there is one at most
};

} // namespace monsrv

#endif
