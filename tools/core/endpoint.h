// Where a server is.
#ifndef MONCL_TOOLS_ENDPOINT_H
#define MONCL_TOOLS_ENDPOINT_H

#include <memory>
#include <string>

namespace tools {

struct encryption;

/// Host and port of a server, and how it is asked.
struct endpoint {
    static constexpr int default_port = 5757;

    std::string host;        ///< a name or an address; an IPv6 address stands in brackets
    int port = default_port; ///< 1 to 65535
    std::shared_ptr<const encryption> keys = nullptr; ///< null: in plain

    std::string text() const { return host + ":" + std::to_string(port); }
    bool is_ipv6() const { return !host.empty() && host.front() == '['; }
};

/// Reads HOST[:PORT], [IPV6][:PORT] or an IPv6 address alone.
/// @return what is wrong with @p text, and @p at is of no use; empty if nothing is wrong
std::string read_endpoint(const std::string& text, endpoint& at);

} // namespace tools

#endif
