// Finding and opening the address a server listens at.
#include "listener.h"

#include "zmq_failure.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ifaddrs.h>
#include <linux/filter.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <zmq.h>

namespace monsrv {

namespace {
// Connections that the kernel holds until ZeroMQ accepts them. These come in after the others have
// been shut out.
constexpr int backlog = 32;

bool is_loopback(const sockaddr_storage& at) {
    const auto* v4 = reinterpret_cast<const sockaddr_in*>(&at);
    const auto* v6 = reinterpret_cast<const sockaddr_in6*>(&at);
    if (at.ss_family == AF_INET)
        return ntohl(v4->sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
    return IN6_IS_ADDR_LOOPBACK(&v6->sin6_addr) ||
           (IN6_IS_ADDR_V4MAPPED(&v6->sin6_addr) && v6->sin6_addr.s6_addr[12] == IN_LOOPBACKNET);
}

void set_port(sockaddr_storage& at, int port) {
    const std::uint16_t number = htons(static_cast<std::uint16_t>(port));
    if (at.ss_family == AF_INET)
        reinterpret_cast<sockaddr_in*>(&at)->sin_port = number;
    else
        reinterpret_cast<sockaddr_in6*>(&at)->sin6_port = number;
}

listen_address all_addresses() {
    listen_address all;
    all.at.ss_family = AF_INET6;
    all.size = sizeof(sockaddr_in6);
    all.both_families = true;
    const int fd = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd != -1) {
        close(fd);
        return all;
    }
    all.at.ss_family = AF_INET; // a kernel without IPv6
    all.size = sizeof(sockaddr_in);
    return all;
}

// Reads an address, or asks for that of a host if @p flags allow it.
bool look_up(const std::string& name, int flags, listen_address& found, std::string& wrong) {
    addrinfo wanted{};
    wanted.ai_flags = flags;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (const int error = getaddrinfo(name.c_str(), nullptr, &wanted, &list); error != 0) {
        wrong = gai_strerror(error);
        return false;
    }
    std::memcpy(&found.at, list->ai_addr, list->ai_addrlen);
    found.size = list->ai_addrlen;
    found.is_loopback = is_loopback(found.at);
    freeaddrinfo(list);
    return true;
}

// The IPv4 address of an interface, or, if it has none, its IPv6 address.
bool look_up_interface(const std::string& name, listen_address& found) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) == -1)
        return false;
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> all(list, freeifaddrs);
    for (const int family : {AF_INET, AF_INET6}) {
        for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
            if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != family ||
                name != each->ifa_name)
                continue;
            found.size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
            std::memcpy(&found.at, each->ifa_addr, found.size);
            return true;
        }
    }
    return false;
}
} // namespace

std::string endpoint_text(const std::string& address, const std::string& port) {
    const bool bare_ipv6 = address.find(':') != address.npos && address.front() != '[';
    return (bare_ipv6 ? "[" + address + "]" : address) + ":" + port;
}

listen_address find_listen_address(const std::string& address, int port) {
    const bool in_brackets = address.size() > 2 && address.front() == '[' && address.back() == ']';
    const std::string name = in_brackets ? address.substr(1, address.size() - 2) : address;
    listen_address found;
    std::string wrong = "no such address";
    if (name == "*")
        found = all_addresses();
    else if (name.empty() || (!look_up(name, AI_NUMERICHOST, found, wrong) &&
                              !look_up_interface(name, found) && !look_up(name, 0, found, wrong)))
        throw std::runtime_error("cannot listen at " +
                                 endpoint_text(address, std::to_string(port)) + ": " + wrong);
    set_port(found.at, port);
    return found;
}

listener::listener(const listen_address& where, const std::string& text)
    : fd_(socket(where.at.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const int reuse = 1; // connections of an earlier server may still be closing
    const int ipv6_only = where.both_families ? 0 : 1;
    sockaddr_storage bound{};
    socklen_t size = sizeof bound;
    if (fd_ == -1 || setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) == -1 ||
        (where.at.ss_family == AF_INET6 &&
         setsockopt(fd_, IPPROTO_IPV6, IPV6_V6ONLY, &ipv6_only, sizeof ipv6_only) == -1) ||
        ::bind(fd_, reinterpret_cast<const sockaddr*>(&where.at), where.size) == -1 ||
        listen(fd_, backlog) == -1 ||
        getsockname(fd_, reinterpret_cast<sockaddr*>(&bound), &size) == -1) {
        const int error = errno;
        if (fd_ != -1)
            close(fd_);
        throw std::system_error(error, std::generic_category(), "cannot listen at " + text);
    }
    port_ = ntohs(bound.ss_family == AF_INET ? reinterpret_cast<sockaddr_in*>(&bound)->sin_port
                                             : reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port);
}

listener::~listener() {
    if (!handed_over_)
        close(fd_);
}

void listener::hand_over(void* socket) {
    zmq_setsockopt(socket, ZMQ_USE_FD, &fd_, sizeof fd_);
    // The socket is bound already: ZeroMQ reads this address and does not use it.
    const std::string unused = "tcp://127.0.0.1:" + std::to_string(port_);
    if (zmq_bind(socket, unused.c_str()) == -1)
        throw_zmq_error(zmq_errno(), "cannot listen");
    handed_over_ = true;
}

// A filter of one instruction, which says how many bytes of a packet pass.
void listener::admit(bool connections) {
    sock_filter verdict{BPF_RET | BPF_K, 0, 0, connections ? 0xFFFFFFFFU : 0};
    const sock_fprog filter{1, &verdict};
    setsockopt(fd_, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

} // namespace monsrv
