// The connections to a server: how many there are, which peer each belongs to, and when it goes.
#ifndef MONSRV_CONNECTIONS_H
#define MONSRV_CONNECTIONS_H

#include "listener.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace monsrv {

/// Raises this process's limit of open descriptors to what @p clients need beside the server's own.
/// @throws std::runtime_error if the kernel does not allow as many
void reserve_descriptors(int clients);

/// What is known of the connection that a message came by.
enum class origin {
    open,   ///< it is there
    gone,   ///< it was closed meanwhile
    unknown ///< the peer speaks a version of the transport that does not say
};

/// Keeps count of a ROUTER socket's connections by its monitor events, and holds them to a limit.
/// Belongs to the thread of that socket.
class connections {
public:
    using clock = std::chrono::steady_clock;

    /// @param most connections at once; those beyond are closed, and others are kept waiting
    /// @throws std::system_error if that fails
    connections(void* context, void* router, int most);
    ~connections();
    connections(const connections&) = delete;
    connections& operator=(const connections&) = delete;

    /// A ZeroMQ socket that is readable when `update` has something to do.
    void* events() const { return monitor_; }
    /// Takes the events that have come; calls @p gone with each peer whose connection has closed.
    /// New connections are accepted by @p listening, or not, until the next call.
    void update(listener& listening, const std::function<void(const std::string&)>& gone);
    /// When `update` has to be called, even if there is no event.
    clock::time_point due() const;

    /// Whether @p peer is known to send by the descriptor @p fd.
    bool is_known(const std::string& peer, int fd) const;
    /// Notes that @p peer sent a message by the descriptor @p fd; -1 if that is not known. Calls
    /// @p gone if another peer had that descriptor before. To be called after `update`, unless
    /// `is_known`.
    origin seen(const std::string& peer, int fd,
                const std::function<void(const std::string&)>& gone);
    /// Closes the connection of @p peer, if it is open and has sent a message.
    void cut_off(const std::string& peer) const;

    std::uint64_t open() const { return peers_.size(); }
    /// Connections closed because there were too many.
    std::uint64_t refused() const { return refused_; }

private:
    void take(std::uint16_t event, int fd, const std::function<void(const std::string&)>& gone);

    void* monitor_ = nullptr;
    std::size_t most_;
    std::map<int, std::string> peers_; // by descriptor; empty if it has sent no message
    bool is_admitting_ = true;
    clock::time_point shut_at_{}; // when others were shut out last
    std::uint64_t refused_ = 0;
};

} // namespace monsrv

#endif
