// Learning the pace of clients.
#include "request_pace.h"

#include <algorithm>

namespace monsrv {

request_pace::clock::duration request_pace::tolerance(clock::duration interval) {
    return interval / 4 + std::chrono::milliseconds(50);
}

bool request_pace::asked(std::uint8_t client_id, clock::time_point now) {
    client& asking = clients_[client_id];
    if (asking.latest != clock::time_point{}) {
        const clock::duration interval =
            std::max<clock::duration>(now - asking.latest, std::chrono::microseconds(1));
        const clock::duration difference =
            std::max(interval, asking.interval) - std::min(interval, asking.interval);
        asking.steady = asking.interval.count() > 0 && difference <= tolerance(asking.interval);
        asking.interval = interval;
    }
    asking.latest = now;
    return asking.steady;
}

std::optional<request_pace::clock::time_point> request_pace::next(clock::time_point now,
                                                                  clock::time_point after) const {
    std::optional<clock::time_point> earliest;
    for (const auto& each : clients_) {
        const client& known = each.second;
        if (!known.steady || now > known.latest + known.interval + tolerance(known.interval))
            continue;
        const auto missed = std::max<clock::duration>(after - known.latest, clock::duration(1));
        const auto turns = (missed + known.interval - clock::duration(1)) / known.interval;
        const clock::time_point expected = known.latest + turns * known.interval;
        earliest = earliest ? std::min(*earliest, expected) : expected;
    }
    return earliest;
}

} // namespace monsrv
