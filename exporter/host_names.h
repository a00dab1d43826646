// Which names this exporter answers to: a page of somebody else's may let a name of its own point
// to this machine, and would then be of the same origin as ours.
#ifndef MONCL_EXPORTER_HOST_NAMES_H
#define MONCL_EXPORTER_HOST_NAMES_H

#include <set>
#include <string>
#include <vector>

namespace exporter {

/// The names of this exporter.
class host_names {
public:
    /// @param more names besides localhost and that of this machine
    explicit host_names(const std::vector<std::string>& more);

    /// Whether the header Host says one of the names, or any IP address: whoever asks for an
    /// address has not been sent here by a name. The port is of no matter.
    bool has(const std::string& header) const;

private:
    std::set<std::string> names_; // in lower case
};

} // namespace exporter

#endif
