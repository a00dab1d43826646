// Which names this exporter answers to. The owner of another page may point a name of theirs to
// this machine; under that name their page would have the same origin as ours, so requests for such
// names are refused.
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

    /// Whether the header Host has one of the names, or any IP address: a browser that asks for an
    /// address was not sent here by a foreign name. The port is ignored.
    bool has(const std::string& header) const;

private:
    std::set<std::string> names_; // in lower case
};

} // namespace exporter

#endif
