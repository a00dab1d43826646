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

/// Makes sources that report every @p interval seconds. Messages go to @p messages.
using live_sources =
    std::function<std::vector<std::unique_ptr<source>>(double interval, std::ostream& messages)>;

/// Whether to show the live screen: on a terminal, if no subject, form or count was given.
bool wants_live_screen(const invocation& called);

/// Shows the sources that @p open makes until the user leaves. What the sources need outlives this
/// call.
/// @return the exit status; nothing if the terminal cannot show a screen
std::optional<int> show_live(const invocation& called, const live_sources& open);

/// Shows the servers that were asked for.
/// @return as `show_live`
std::optional<int> show_live_servers(const invocation& called);

} // namespace tools

#endif
