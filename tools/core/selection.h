// Which rows a user asked for.
#ifndef MONCL_TOOLS_SELECTION_H
#define MONCL_TOOLS_SELECTION_H

#include <string>
#include <vector>

namespace tools {

/// The rows asked for. Each member restricts the subjects to which it applies.
struct selection {
    std::vector<std::string> names; ///< rows of which a label is one of these; empty: all
    std::vector<std::string> cpus;  ///< CPUs by number, or "all"; empty: what the subject shows
    bool every_cpu = false;         ///< each CPU that there is
    std::vector<int> pids;          ///< processes to watch
    std::size_t rows = 0;           ///< most rows of a table of busiest things; 0: all
};

} // namespace tools

#endif
