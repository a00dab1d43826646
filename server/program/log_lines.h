// Lines of monsrv's log: to a terminal or a file as they are, to the system's journal with the
// priority that it sorts them by.
#ifndef MONSRV_PROGRAM_LOG_LINES_H
#define MONSRV_PROGRAM_LOG_LINES_H

#include <string>

namespace monsrv {

/// Numbered as the journal does.
enum class log_level { error = 3, warning = 4, notice = 5, info = 6 };

/// Whether standard error goes to the journal, which says so in the environment.
bool logs_to_journal();

/// Writes "monsrv: TEXT", or "<LEVEL>TEXT" for the journal, and a line end to standard error, in
/// one piece. May be called from any thread.
void log_line(log_level level, const std::string& text);

} // namespace monsrv

#endif
