// The address a server listens at: found by name, opened, and closed to new connections for a time.
#ifndef MONSRV_LISTENER_H
#define MONSRV_LISTENER_H

#include <string>
#include <sys/socket.h>

namespace monsrv {

/// ADDRESS:PORT, an IPv6 address in brackets.
std::string endpoint_text(const std::string& address, const std::string& port);

/// An address to listen at.
struct listen_address {
    sockaddr_storage at{};
    socklen_t size = 0;
    bool both_families = false; ///< all addresses, IPv4 and IPv6
    bool is_loopback = false;   ///< only programs of this host can connect
};

/// Finds what @p address stands for. An interface never counts as loopback.
/// @param address an IPv4 or IPv6 address, the latter with or without brackets, an interface, a
///                host's name, or "*" for all addresses of both families
/// @param port 0 to 65535; 0 picks a free one
/// @throws std::runtime_error if there is no such address
listen_address find_listen_address(const std::string& address, int port);

/// A listening TCP socket that ZeroMQ accepts connections from. ZeroMQ cannot be told to stop
/// accepting without giving the port up, to whoever takes it then; the kernel can.
class listener {
public:
    /// @throws std::system_error if that fails; @p text is the address as a user wrote it
    listener(const listen_address& where, const std::string& text);
    ~listener();
    listener(const listener&) = delete;
    listener& operator=(const listener&) = delete;

    int port() const { return port_; }
    /// Lets the ZeroMQ socket @p socket accept connections, and close this socket's descriptor.
    /// @throws std::system_error if that fails
    void hand_over(void* socket);
    /// Whether the kernel takes new connections. If not, it ignores attempts, which other hosts
    /// repeat after 1 s, 3 s, 7 s and so on; a few that it took before are still accepted.
    void admit(bool connections);

private:
    int fd_;
    int port_ = 0;
    bool handed_over_ = false;
};

} // namespace monsrv

#endif
