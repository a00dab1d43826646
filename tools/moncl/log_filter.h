// The library's log in this program: on standard error, if asked for.
#ifndef MONCL_TOOLS_LOG_FILTER_H
#define MONCL_TOOLS_LOG_FILTER_H

namespace tools {

/// Whether the library's log lines are shown. The program says in its own words what went wrong.
extern bool show_log;

} // namespace tools

#endif
