// What the commands that ask a peri_stat_manager have in common.
#ifndef MONCL_TOOLS_PERIPHERALS_H
#define MONCL_TOOLS_PERIPHERALS_H

#include "peri_stat_manager.h"
#include "session.h"

namespace tools {

/// One query of a manager, as in `subject`.
using peripheral_query = std::function<int(peri_stat_manager&, std::ostream*)>;

/// What the server sends for a thermal zone, or a cooling device, that cannot be read.
inline constexpr std::int64_t unknown_temperature = -274000;
inline constexpr std::int64_t unknown_state = -1;

/// Whether @p figure, decoded as unsigned, is another than @p unknown.
inline bool is_known(std::uint64_t figure, std::int64_t unknown) {
    return static_cast<std::int64_t>(figure) != unknown;
}

/// Asks @p query again and again over a manager of its own. The library leaves the last line end of
/// these reports to its caller: it is written here.
/// @param compares whether a figure needs two samples
/// @return the exit status
int repeat_query(session& asking, const schedule& when, const peripheral_query& query,
                 bool compares = false);

} // namespace tools

#endif
