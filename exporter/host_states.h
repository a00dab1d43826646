// Which servers answer, since when, and why not.
#ifndef MONCL_EXPORTER_HOST_STATES_H
#define MONCL_EXPORTER_HOST_STATES_H

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace exporter {

/// One server.
struct host_state {
    std::string host;
    std::optional<bool> up;                      ///< nothing: it has not been asked yet
    std::chrono::system_clock::time_point since; ///< of what `up` says
    std::string text;                            ///< if it is not up: the cause and the remedy
};

/// @p state as an object of JSON.
std::string to_json(const host_state& state);

/// The states of all servers. From any thread.
class host_states {
public:
    explicit host_states(const std::vector<std::string>& hosts);

    /// In the order in which they were named.
    std::vector<host_state> all() const;
    bool has(const std::string& host) const;
    /// Takes what a query showed.
    /// @param why if it is not up
    /// @return the new state, if it has changed
    std::optional<host_state> set(const std::string& host, bool up, const std::string& why);

private:
    mutable std::mutex lock_;
    std::vector<host_state> states_;
};

} // namespace exporter

#endif
