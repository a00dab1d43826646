// What the commands about the video pipeline have in common.
#ifndef MONCL_TOOLS_VIDEO_COMMAND_H
#define MONCL_TOOLS_VIDEO_COMMAND_H

#include "vio_info_manager.h"

#include "session.h"

namespace tools {

/// Asks @p manager and reports to @p out; may complain on @p err.
/// @return 0 or more, or the negative code of a failed query
using video_report = int (*)(vio_info_manager& manager, std::ostream& out, std::ostream& err);

/// A command that reports on a schedule of its own, over one connection.
command_action video_command(CLI::App& app, video_report report);

/// Runs @p query. Its decoders print their reports to standard output, whatever stream there is:
/// that goes to @p printed instead.
/// @return the query's result
int take_output(vio_info_manager& manager, int (vio_info_manager::*query)(), std::string& printed);

/// Runs @p query and drops the reports its decoders print: they show all records again after each
/// of several answers. What could not be decoded is said on @p err.
/// @return the query's result
int drop_reports(vio_info_manager& manager, int (vio_info_manager::*query)(), std::ostream& err);

/// A record's character as a column shows it; '-' for one the text did not have.
char shown_character(std::uint8_t character);

} // namespace tools

#endif
