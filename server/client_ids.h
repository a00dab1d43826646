// The ids that tell clients apart: one byte each, granted to a connection and taken back.
#ifndef MONSRV_CLIENT_IDS_H
#define MONSRV_CLIENT_IDS_H

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace monsrv {

/// Ids 1 to 255, and 0 for clients without one. A connection, named by its peer, holds one id at
/// most; others may use it beside the holder, as the connections of one process do, but cannot give
/// it back.
///
/// An id whose connection has gone is free at once, and is granted again after those that were free
/// before. The samples kept under it are forgotten after `grace`, or when the id is granted to
/// another client. Until then a client can connect again and find them.
///
/// An id without a request for `lease` counts as abandoned and may be granted again, but only once
/// no other is left.
class client_ids {
public:
    using clock = std::chrono::steady_clock;
    static constexpr std::chrono::hours lease{1};
    static constexpr std::chrono::seconds grace{10};

    /// The id that @p peer holds, or else the one that was free for longest.
    /// @return 0 if all are held
    std::uint8_t grant(const std::string& peer, clock::time_point now = clock::now());
    /// Notes a request from @p peer with @p id. An id that nobody holds is taken to have been
    /// granted before this server was started, or to a connection that this one replaces: @p peer
    /// holds it from then on, unless it holds another.
    void seen(std::uint8_t id, const std::string& peer, clock::time_point now = clock::now());
    /// Frees @p id.
    /// @return 0; -EINVAL if nobody holds it, -EACCES if another peer does
    int give_back(std::uint8_t id, const std::string& peer, clock::time_point now = clock::now());

    /// Whether @p peer may switch on or off what is counted under @p id: it holds the id, or has
    /// switched it on, or nobody has.
    bool may_switch_counting(std::uint8_t id, const std::string& peer) const;
    /// Notes that @p peer has switched counting on or off.
    void counting_switched(std::uint8_t id, const std::string& peer, bool on);

    /// Notes that the connection of @p peer has closed.
    void gone(const std::string& peer, clock::time_point now = clock::now());
    /// When `take_forgotten` is to be called next, or somewhat before.
    clock::time_point due() const { return due_; }
    /// Takes the ids of which all is to be forgotten: their connections went `grace` ago.
    std::vector<std::uint8_t> take_forgotten(clock::time_point now = clock::now());

    /// The id that @p peer holds; 0 if none.
    std::uint8_t held_by(const std::string& peer) const;
    /// Number of ids held.
    std::uint64_t held() const { return held_; }

private:
    struct slot {
        std::string holder; // empty if the id is free
        std::string other;  // used it last beside the holder
        bool is_counting = false;
        std::string counts; // switched counting on, or holds the id since that one went
        clock::time_point last_seen;
        clock::time_point free_since;
        std::optional<clock::time_point> forget_at;
    };
    void hold(slot& held, const std::string& peer, clock::time_point now);
    void free(slot& freed, clock::time_point now);
    void forget_later(slot& of, clock::time_point now);

    std::array<slot, 256> slots_; // slot 0 is never held
    std::uint64_t held_ = 0;
    clock::time_point due_ = clock::time_point::max();
};

} // namespace monsrv

#endif
