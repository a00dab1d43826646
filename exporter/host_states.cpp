// Keeping the states of servers.
#include "host_states.h"

#include "figure_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace exporter {

std::string to_json(const host_state& state) {
    using nlohmann::ordered_json;
    ordered_json made;
    made["host"] = state.host;
    made["up"] = state.up ? ordered_json(*state.up) : ordered_json();
    made["since"] = state.up ? ordered_json(tools::utc_text(state.since)) : ordered_json();
    made["text"] = state.text;
    return made.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

host_states::host_states(const std::vector<std::string>& hosts) {
    for (const std::string& each : hosts)
        states_.push_back({each, std::nullopt, {}, {}});
}

std::vector<host_state> host_states::all() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return states_;
}

bool host_states::has(const std::string& host) const {
    const auto states = all();
    return std::any_of(states.begin(), states.end(),
                       [&](const host_state& each) { return each.host == host; });
}

std::optional<host_state> host_states::set(const std::string& host, bool up,
                                           const std::string& why) {
    const std::lock_guard<std::mutex> guard(lock_);
    for (host_state& each : states_) {
        if (each.host != host || each.up == up)
            continue;
        each = {host, up, std::chrono::system_clock::now(), up ? std::string() : why};
        return each;
    }
    return std::nullopt;
}

} // namespace exporter
