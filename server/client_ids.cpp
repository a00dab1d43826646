// Granting and taking back client ids.
#include "client_ids.h"

#include <algorithm>

namespace monsrv {

std::uint8_t client_ids::grant(clock::time_point now) {
    auto found =
        std::find_if(slots_.begin() + 1, slots_.end(), [](const slot& s) { return !s.held; });
    if (found == slots_.end())
        found = std::find_if(slots_.begin() + 1, slots_.end(),
                             [now](const slot& s) { return now - s.last_seen > lease; });
    if (found == slots_.end())
        return 0;
    *found = {true, now};
    return static_cast<std::uint8_t>(found - slots_.begin());
}

void client_ids::seen(std::uint8_t id, clock::time_point now) {
    if (id != 0)
        slots_[id] = {true, now};
}

bool client_ids::give_back(std::uint8_t id) {
    const bool was_held = slots_[id].held;
    slots_[id].held = false;
    return was_held;
}

int client_ids::held() const {
    return static_cast<int>(
        std::count_if(slots_.begin(), slots_.end(), [](const slot& s) { return s.held; }));
}

} // namespace monsrv
