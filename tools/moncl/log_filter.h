// The library's log in this program: on standard error, if asked for.
#ifndef MONCL_TOOLS_LOG_FILTER_H
#define MONCL_TOOLS_LOG_FILTER_H

namespace tools {

/// Whether the library's log lines are shown. They are off by default, because the program has
/// messages of its own.
extern bool show_log;

} // namespace tools

#endif
