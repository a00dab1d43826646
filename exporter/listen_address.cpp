// Reading addresses to listen at.
#include "listen_address.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstring>
#include <netinet/in.h>

namespace exporter {

namespace {
constexpr const char* form = "needs ADDRESS:PORT, such as 127.0.0.1:9757, [::1]:9757 or *:9757";

void set_ipv6(listen_address& at, const in6_addr& address, std::uint16_t port) {
    sockaddr_in6 made{};
    made.sin6_family = AF_INET6;
    made.sin6_addr = address;
    made.sin6_port = htons(port);
    std::memcpy(&at.socket, &made, sizeof made);
}

void set_ipv4(listen_address& at, const in_addr& address, std::uint16_t port) {
    sockaddr_in made{};
    made.sin_family = AF_INET;
    made.sin_addr = address;
    made.sin_port = htons(port);
    std::memcpy(&at.socket, &made, sizeof made);
}
} // namespace

std::string read_listen_address(const std::string& text, listen_address& at) {
    const std::size_t colon = text.rfind(':');
    std::uint16_t port = 0;
    if (colon == text.npos || colon == 0)
        return form;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data() + colon + 1, end, port);
    if (read.ec != std::errc() || read.ptr != end)
        return form;
    std::string host = text.substr(0, colon);
    at = {};
    at.text = text;
    if (host == "*") {
        at.every_family = true;
        set_ipv6(at, in6addr_any, port);
        return {};
    }
    if (host == "localhost")
        host = "127.0.0.1";
    in_addr ipv4{};
    if (inet_pton(AF_INET, host.c_str(), &ipv4) == 1) {
        set_ipv4(at, ipv4, port);
        return {};
    }
    in6_addr ipv6{};
    if (host.front() != '[' || host.back() != ']' ||
        inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &ipv6) != 1)
        return form;
    set_ipv6(at, ipv6, port);
    return {};
}

bool listen_address::is_loopback() const {
    if (socket.ss_family == AF_INET) {
        sockaddr_in ipv4;
        std::memcpy(&ipv4, &socket, sizeof ipv4);
        constexpr std::uint32_t loopback_net = 127;
        return ntohl(ipv4.sin_addr.s_addr) >> 24 == loopback_net;
    }
    sockaddr_in6 ipv6;
    std::memcpy(&ipv6, &socket, sizeof ipv6);
    return IN6_IS_ADDR_LOOPBACK(&ipv6.sin6_addr);
}

} // namespace exporter
