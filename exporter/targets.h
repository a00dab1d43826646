// Which servers /probe may be sent to.
#ifndef MONCL_EXPORTER_TARGETS_H
#define MONCL_EXPORTER_TARGETS_H

#include "endpoint.h"

#include <optional>
#include <string>
#include <vector>

namespace exporter {

/// Whether @p text fits @p pattern: `*` stands for any letters and digits, and for none, but not
/// for '.' nor ':', so that 10.0.0.* is no name of somebody else's.
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
