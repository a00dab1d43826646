// Where the exporter listens.
#ifndef MONCL_EXPORTER_LISTEN_ADDRESS_H
#define MONCL_EXPORTER_LISTEN_ADDRESS_H

#include <string>
#include <sys/socket.h>

namespace exporter {

/// An address of this machine with a port.
struct listen_address {
    std::string text;          ///< as it was given
    sockaddr_storage socket{}; ///< IPv4 or IPv6
    bool every_family = false; ///< both of them, at the IPv6 address `::`

    bool is_loopback() const;
};

/// Reads ADDRESS:PORT: an IPv4 address, an IPv6 address in brackets, `localhost`, or `*` for all
/// addresses. Port 0 stands for a free one.
/// @return what is wrong with @p text, and @p at is of no use; empty if nothing is wrong
std::string read_listen_address(const std::string& text, listen_address& at);

} // namespace exporter

#endif
