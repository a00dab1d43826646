// Asking the kernel for TCP sockets with their connections' counters.
#include "tcp_sockets.h"

#include "descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace monsrv {

namespace {
using clock_type = std::chrono::steady_clock;

// States of the kernel's <net/tcp_states.h> whose sockets have an owner and counters: all but
// closed, listening and those that only wait for late packets.
enum tcp_state {
    established = 1,
    syn_sent = 2,
    fin_wait1 = 4,
    fin_wait2 = 5,
    close_wait = 8,
    last_ack = 9,
    closing = 11
};
constexpr std::uint32_t with_connection = 1U << established | 1U << syn_sent | 1U << fin_wait1 |
                                          1U << fin_wait2 | 1U << close_wait | 1U << last_ack |
                                          1U << closing;

int ask(int fd, int family) {
    struct {
        nlmsghdr head{};
        inet_diag_req_v2 request{};
    } message;
    message.head.nlmsg_len = sizeof message;
    message.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    message.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message.request.sdiag_family = static_cast<std::uint8_t>(family);
    message.request.sdiag_protocol = IPPROTO_TCP;
    message.request.idiag_ext = 1U << (INET_DIAG_INFO - 1);
    message.request.idiag_states = with_connection;
    return send(fd, &message, sizeof message, 0) == -1 ? -errno : 0;
}

template<class Field>
Field read_field(const rtattr* attribute, std::size_t offset) {
    Field value{};
    if (RTA_PAYLOAD(attribute) >= offset + sizeof value)
        std::memcpy(&value, static_cast<const char*>(RTA_DATA(attribute)) + offset, sizeof value);
    return value;
}

// Bytes sent and acknowledged. The kernel also counts a SYN and a FIN of ours as one byte each; its
// count of sent bytes is of data only, so once all data is acknowledged the difference is that SYN
// and FIN.
std::uint64_t acknowledged(const rtattr* info) {
    const auto acked = read_field<std::uint64_t>(info, offsetof(tcp_info, tcpi_bytes_acked));
    const auto sent = read_field<std::uint64_t>(info, offsetof(tcp_info, tcpi_bytes_sent)) -
                      read_field<std::uint64_t>(info, offsetof(tcp_info, tcpi_bytes_retrans));
    const bool tells_sent = // kernels before 4.19 do not
        RTA_PAYLOAD(info) >= offsetof(tcp_info, tcpi_bytes_retrans) + sizeof sent;
    return tells_sent && acked > sent && acked - sent <= 2 ? sent : acked;
}

// Bytes received. The kernel also counts the other end's FIN as one byte.
std::uint64_t received(const rtattr* info, int state) {
    const auto bytes = read_field<std::uint64_t>(info, offsetof(tcp_info, tcpi_bytes_received));
    const bool ended = state == close_wait || state == last_ack || state == closing;
    return bytes - (ended && bytes > 0 ? 1 : 0);
}

void add_socket(nlmsghdr* head, std::vector<tcp_socket>& sockets) {
    if (head->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg)))
        return;
    auto* message = static_cast<inet_diag_msg*>(NLMSG_DATA(head));
    if (message->idiag_inode == 0)
        return; // its process has closed it
    tcp_socket found{};
    found.inode = message->idiag_inode;
    found.cookie =
        static_cast<std::uint64_t>(message->id.idiag_cookie[1]) << 32 | message->id.idiag_cookie[0];
    auto left = static_cast<int>(head->nlmsg_len - NLMSG_LENGTH(sizeof *message));
    for (auto* attribute = reinterpret_cast<rtattr*>(message + 1); RTA_OK(attribute, left);
         attribute = RTA_NEXT(attribute, left))
        if (attribute->rta_type == INET_DIAG_INFO)
            found.bytes = acknowledged(attribute) + received(attribute, message->idiag_state);
    sockets.push_back(found);
}

// Takes in one batch of the answer.
// Returns 1 if more follow, 0 after the last, or a negated errno.
int add_batch(char* batch, std::size_t size, std::vector<tcp_socket>& sockets) {
    auto left = static_cast<unsigned>(size);
    for (auto* head = reinterpret_cast<nlmsghdr*>(batch); NLMSG_OK(head, left);
         head = NLMSG_NEXT(head, left)) {
        if (head->nlmsg_type == NLMSG_DONE)
            return 0;
        if (head->nlmsg_type == NLMSG_ERROR) {
            const auto* error = static_cast<const nlmsgerr*>(NLMSG_DATA(head));
            return head->nlmsg_len < NLMSG_LENGTH(sizeof *error) || error->error >= 0
                       ? -EIO
                       : error->error;
        }
        if (head->nlmsg_type == SOCK_DIAG_BY_FAMILY)
            add_socket(head, sockets);
    }
    return 1;
}

int list_family(int fd, int family, clock_type::time_point deadline,
                std::vector<tcp_socket>& sockets) {
    if (const int error = ask(fd, family); error < 0)
        return error;
    alignas(nlmsghdr) std::array<char, 32768> batch;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - clock_type::now());
        if (left.count() <= 0)
            return -ETIMEDOUT;
        const timeval timeout{left.count() / 1000000, left.count() % 1000000};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        const ssize_t size = recv(fd, batch.data(), batch.size(), 0);
        if (size == -1 && errno == EINTR)
            continue;
        if (size <= 0)
            return size == 0 || errno == EAGAIN ? -ETIMEDOUT : -errno;
        if (const int more = add_batch(batch.data(), static_cast<std::size_t>(size), sockets);
            more <= 0)
            return more;
    }
}
} // namespace

int list_tcp_sockets(clock_type::time_point deadline, std::vector<tcp_socket>& sockets) {
    for (int family : {AF_INET, AF_INET6}) {
        const descriptor netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
        if (netlink.fd == -1)
            return -errno;
        if (const int error = list_family(netlink.fd, family, deadline, sockets); error < 0)
            return error;
    }
    std::sort(sockets.begin(), sockets.end(),
              [](const tcp_socket& a, const tcp_socket& b) { return a.inode < b.inode; });
    return 0;
}

const tcp_socket* find_socket(const std::vector<tcp_socket>& sockets, std::uint32_t inode) {
    const auto found = std::lower_bound(
        sockets.begin(), sockets.end(), inode,
        [](const tcp_socket& each, std::uint32_t wanted) { return each.inode < wanted; });
    return found != sockets.end() && found->inode == inode ? &*found : nullptr;
}

} // namespace monsrv
