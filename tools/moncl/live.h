// Running the live screen.
#ifndef MONCL_TOOLS_LIVE_H
#define MONCL_TOOLS_LIVE_H

#include "command_line.h"
#include "source.h"

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

namespace tools {

/// Makes the sources for reports every so many seconds; what there is to say goes to the stream.
using live_sources =
    std::function<std::vector<std::unique_ptr<source>>(double interval, std::ostream& messages)>;

/// Whether the live screen is what was asked for: nothing in particular, on a terminal.
bool wants_live_screen(const invocation& called);

/// Shows what @p open makes until somebody leaves. What the sources need outlives this call.
/// @return the exit status; nothing if the terminal is not fit for it
std::optional<int> show_live(const invocation& called, const live_sources& open);

/// Shows the servers that were asked for.
/// @return as `show_live`
std::optional<int> show_live_servers(const invocation& called);

} // namespace tools

#endif
