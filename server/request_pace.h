// When clients that keep asking will ask next.
#ifndef MONSRV_REQUEST_PACE_H
#define MONSRV_REQUEST_PACE_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

namespace monsrv {

/// Learns the pace of each client from the times of its latest three requests. A client whose two
/// intervals differ by more than `tolerance` keeps no pace; one that is late by more than that has
/// stopped.
class request_pace {
public:
    using clock = std::chrono::steady_clock;

    /// A quarter of @p interval and 50 ms.
    static clock::duration tolerance(clock::duration interval);

    /// Notes a request.
    /// @return whether the client keeps a pace
    bool asked(std::uint8_t client_id, clock::time_point now);
    void forget(std::uint8_t client_id) { clients_.erase(client_id); }

    /// The earliest time, not before @p after, at which a client asks if it keeps its pace; none if
    /// no client keeps one @p now.
    std::optional<clock::time_point> next(clock::time_point now, clock::time_point after) const;

private:
    struct client {
        clock::time_point latest{};
        clock::duration interval{0}; // 0 before the second request
        bool steady = false;
    };
    std::map<std::uint8_t, client> clients_;
};

} // namespace monsrv

#endif
