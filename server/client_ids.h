// The ids that tell clients apart: one byte each, granted and taken back.
#ifndef MONSRV_CLIENT_IDS_H
#define MONSRV_CLIENT_IDS_H

#include <array>
#include <chrono>
#include <cstdint>

namespace monsrv {

/// Ids 1 to 255. An id that was not heard of for `lease` counts as abandoned (its client was
/// killed, say) and may be granted again, but only once no other is left.
class client_ids {
public:
    using clock = std::chrono::steady_clock;
    static constexpr std::chrono::hours lease{1};

    /// The lowest free id; 0 if all are held.
    std::uint8_t grant(clock::time_point now = clock::now());
    /// Notes a request from @p id. An id this server did not grant was granted before a restart: it
    /// stays its client's.
    void seen(std::uint8_t id, clock::time_point now = clock::now());
    /// Frees @p id.
    /// @return whether it was held
    bool give_back(std::uint8_t id);
    /// Number of ids held.
    int held() const;

private:
    struct slot {
        bool held = false;
        clock::time_point last_seen;
    };
    std::array<slot, 256> slots_; // slot 0 is never held
};

} // namespace monsrv

#endif
