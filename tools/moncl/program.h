// The program as a whole.
#ifndef MONCL_TOOLS_PROGRAM_H
#define MONCL_TOOLS_PROGRAM_H

#include "command_line.h"
#include "local_server.h"
#include "server_source.h"
#include "session.h"

#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace tools {

/// Reads the command line, opens a session and runs the command in it.
/// @return the exit status
int run_program(std::vector<std::string> arguments, std::ostream& out, std::ostream& err);

/// Where a run's samples come from: servers, one of which may be inside the program.
struct server_set {
    std::unique_ptr<local_server> inside;
    std::vector<std::pair<endpoint, std::string>> servers; ///< with what they are called
    std::vector<std::unique_ptr<source>> sources;
};

/// The servers that were asked for, without sources. Call it after a stop_signal and a
/// library_output were made.
server_set open_servers(const invocation& called, std::ostream& err);
/// A source for each server.
std::vector<std::unique_ptr<source>> make_sources(const server_set& servers,
                                                  const server_plan& plan);

/// `open_servers` with sources for what was asked for.
server_set make_server_sources(const invocation& called, const output& shown, std::ostream& err);

/// Makes the output that was asked for, for samples of that many sources.
std::unique_ptr<output> make_output(const invocation& called, std::size_t sources, writer& to);

/// The session's part of what was asked for.
session_plan plan_of_session(const invocation& called);

/// Whether to use colours: as @p asked ("auto", "always" or "never"), then by NO_COLOR and
/// CLICOLOR_FORCE, then on a terminal only.
bool wants_colour(const std::string& asked, bool terminal);

/// Whether @p shown wants rates and any of the subjects has some.
bool compares(const std::vector<const subject*>& subjects, const output& shown);

} // namespace tools

#endif
