// The table of busiest processes as rows to show.
#ifndef MONCL_TOOLS_PROCESS_ROWS_H
#define MONCL_TOOLS_PROCESS_ROWS_H

#include "mon_cpu.h"

#include <string>
#include <vector>

namespace tools {

/// The rows of @p table that are there, the busiest first.
std::vector<pid_msg> sorted_rows(const top_pid_info& table);

/// @p c, or '?' if it is no printable ASCII: names are the processes' own to choose, and none may
/// steer the terminal.
char printable(char c);

/// The process's name, all of it printable.
std::string printable_name(const pid_msg& row);

/// Resident bytes; 0 where what came over the wire is negative.
unsigned long resident_bytes(const pid_msg& row);

} // namespace tools

#endif
