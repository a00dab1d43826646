// The kernel's TCP sockets and what each has carried, over netlink.
#ifndef MONSRV_TCP_SOCKETS_H
#define MONSRV_TCP_SOCKETS_H

#include <chrono>
#include <cstdint>
#include <vector>

namespace monsrv {

/// One TCP socket that belongs to some process.
struct tcp_socket {
    std::uint64_t cookie; ///< the kernel's name for it, never used again
    std::uint32_t inode;  ///< as in the link "socket:[inode]" of a process's descriptor
    std::uint64_t bytes;  ///< of data, received or sent and acknowledged, since it was opened
};

/// Lists the TCP sockets of this process's network namespace, of both address families, that have
/// or had a connection, in @p sockets by ascending inode. The kernel may miss one while others
/// close.
/// @return 0, or a negated errno; then @p sockets has only some of them. -ETIMEDOUT when the kernel
///         has not listed all by @p deadline
int list_tcp_sockets(std::chrono::steady_clock::time_point deadline,
                     std::vector<tcp_socket>& sockets);

/// The socket with the inode @p inode in a list of `list_tcp_sockets`; null if it has none.
const tcp_socket* find_socket(const std::vector<tcp_socket>& sockets, std::uint32_t inode);

} // namespace monsrv

#endif
