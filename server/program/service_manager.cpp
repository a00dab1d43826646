// The notification protocol: lines of NAME=VALUE in one datagram.
#include "service_manager.h"

#include "descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/un.h>

namespace monsrv {

namespace {
std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}
} // namespace

service_manager::service_manager() : socket_(environment("NOTIFY_SOCKET")) {
    if (!socket_.empty() && socket_[0] == '@')
        socket_[0] = '\0';
    // The variable may be meant for a parent process that left it in the environment.
    const std::string whose = environment("WATCHDOG_PID");
    if (!whose.empty() && whose != std::to_string(getpid()))
        return;
    const long long most = 1000LL * 1000 * 86400;
    const long long us = std::atoll(environment("WATCHDOG_USEC").c_str());
    if (us > 0)
        alive_period_ = std::chrono::milliseconds(std::max(std::min(us, most) / 2000, 1LL));
}

void service_manager::ready(const std::string& status) const {
    send("READY=1\nSTATUS=" + status);
}

void service_manager::stopping() const {
    send("STOPPING=1");
}

void service_manager::alive() const {
    send("WATCHDOG=1");
}

void service_manager::send(const std::string& text) const {
    sockaddr_un address{};
    if (socket_.empty() || socket_.size() >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    socket_.copy(address.sun_path, socket_.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
    const descriptor way(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    // A manager that does not read must not hold up the server.
    if (way.fd >= 0)
        sendto(way.fd, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&address), size);
}

} // namespace monsrv
