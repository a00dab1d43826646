// Which servers /probe may be sent to.
#ifndef MONCL_EXPORTER_TARGETS_H
#define MONCL_EXPORTER_TARGETS_H

#include "endpoint.h"

#include <optional>
#include <string>
#include <vector>

namespace exporter {

/// Whether @p text fits @p pattern: `*` stands for any number of letters and digits, also none, but
/// not for '.' or ':'. So 10.0.0.* does not fit a longer name that begins with 10.0.0.
bool fits(const std::string& pattern, const std::string& text);

/// The patterns of --allow-target. None allow nothing.
class allowed_targets {
public:
    /// A pattern without a port is for the default one.
    /// @throws std::runtime_error if a pattern is none
    explicit allowed_targets(const std::vector<std::string>& patterns);

    /// The server that @p text names, if it is allowed.
    std::optional<tools::endpoint> find(const std::string& text) const;

private:
    std::vector<std::string> patterns_; // with ports
};

} // namespace exporter

#endif
