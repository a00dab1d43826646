// Counting connections by the events of ZeroMQ's socket monitor.
#include "connections.h"

#include "zmq_failure.h"

#include <cstring>
#include <endian.h>
#include <stdexcept>
#include <sys/resource.h>
#include <zmq.h>

namespace monsrv {

namespace {
constexpr const char* monitor_address = "inproc://monsrv.connections";
// Descriptors of the server itself: files being read, performance counters of some CPUs.
constexpr rlim_t own_descriptors = 256;
// After new connections were shut out, they stay shut out for at least this time. Some of those let
// in afterwards may be too many and are closed at once, which takes time, so this must not happen
// often.
constexpr std::chrono::milliseconds shut_for{100};

// ZeroMQ numbers the peers that choose no id of their own as they come: a zero byte, then 32 bits,
// the highest first.
bool is_numbered(const std::string& peer) {
    return peer.size() == 5 && peer[0] == '\0';
}
std::uint32_t number_of(const std::string& peer) {
    std::uint32_t number;
    std::memcpy(&number, peer.data() + 1, sizeof number);
    return be32toh(number);
}
// The numbers start at a random value and wrap.
bool came_before(const std::string& peer, const std::string& other) {
    return is_numbered(peer) && is_numbered(other) &&
           static_cast<std::int32_t>(number_of(peer) - number_of(other)) < 0;
}
} // namespace

void reserve_descriptors(int clients) {
    const rlim_t needed = own_descriptors + static_cast<rlim_t>(clients);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur >= needed)
        return;
    if (limit.rlim_max < needed)
        throw std::runtime_error(std::to_string(clients) + " clients need " +
                                 std::to_string(needed) + " open files, and the limit is " +
                                 std::to_string(limit.rlim_max) + " (ulimit -Hn)");
    limit.rlim_cur = needed;
    setrlimit(RLIMIT_NOFILE, &limit);
}

connections::connections(void* context, void* router, int most)
    : most_(static_cast<std::size_t>(most)) {
    const int unlimited = 0; // with a limit, ZeroMQ's own thread would wait for this one
    const int linger_ms = 0;
    if (zmq_socket_monitor(router, monitor_address, ZMQ_EVENT_ACCEPTED | ZMQ_EVENT_DISCONNECTED) ==
            -1 ||
        (monitor_ = zmq_socket(context, ZMQ_PAIR)) == nullptr)
        throw_zmq_error(zmq_errno(), "monsrv");
    zmq_setsockopt(monitor_, ZMQ_RCVHWM, &unlimited, sizeof unlimited);
    zmq_setsockopt(monitor_, ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    if (zmq_connect(monitor_, monitor_address) == -1) {
        const int error = zmq_errno();
        zmq_close(monitor_);
        throw_zmq_error(error, "monsrv");
    }
}

connections::~connections() {
    zmq_close(monitor_);
}

void connections::update(listener& listening, const std::function<void(const std::string&)>& gone) {
    unsigned char event[6]; // a number of 16 bits and one of 32, then a part with an address
    while (zmq_recv(monitor_, event, sizeof event, ZMQ_DONTWAIT) == sizeof event) {
        zmq_recv(monitor_, nullptr, 0, ZMQ_DONTWAIT);
        std::uint16_t what;
        std::int32_t fd;
        std::memcpy(&what, event, sizeof what);
        std::memcpy(&fd, event + sizeof what, sizeof fd);
        take(what, fd, gone);
    }
    const bool full = peers_.size() >= most_;
    const bool admits = is_admitting_ ? !full : !full && clock::now() >= shut_at_ + shut_for;
    if (admits == is_admitting_)
        return;
    listening.admit(admits);
    is_admitting_ = admits;
    if (!admits)
        shut_at_ = clock::now();
}

void connections::take(std::uint16_t event, int fd,
                       const std::function<void(const std::string&)>& gone) {
    const auto before = peers_.extract(fd);
    if (!before.empty() && !before.mapped().empty())
        gone(before.mapped());
    if (event != ZMQ_EVENT_ACCEPTED)
        return;
    peers_.emplace(fd, std::string());
    if (peers_.size() <= most_)
        return;
    ++refused_;
    shutdown(fd, SHUT_RDWR); // ZeroMQ sees that and closes the descriptor
}

connections::clock::time_point connections::due() const {
    return is_admitting_ || peers_.size() >= most_ ? clock::time_point::max() : shut_at_ + shut_for;
}

bool connections::is_known(const std::string& peer, int fd) const {
    const auto found = peers_.find(fd);
    return found != peers_.end() && found->second == peer;
}

// When a message is taken, its connection may have closed and a newer one may have its descriptor.
origin connections::seen(const std::string& peer, int fd,
                         const std::function<void(const std::string&)>& gone) {
    if (fd == -1)
        return origin::unknown;
    const auto found = peers_.find(fd);
    if (found == peers_.end())
        return origin::gone;
    std::string& owner = found->second;
    if (owner == peer)
        return origin::open;
    if (!owner.empty()) {
        if (came_before(peer, owner))
            return origin::gone;
        gone(owner);
    }
    owner = peer;
    return origin::open;
}

// ZeroMQ may have closed the descriptor by now, and its number may belong to a newer connection.
// That one is then cut off instead, and connects again.
void connections::cut_off(const std::string& peer) const {
    for (const auto& [fd, its_peer] : peers_)
        if (its_peer == peer)
            shutdown(fd, SHUT_RDWR);
}

} // namespace monsrv
