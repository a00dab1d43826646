// The command line of the console program, from arguments to a command ready to run.
#ifndef MONCL_TOOLS_COMMAND_LINE_H
#define MONCL_TOOLS_COMMAND_LINE_H

#include "command.h"
#include "schedule.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace tools {

/// Exit status of the program.
enum exit_status {
    exit_ok = 0,
    exit_failed = 1, ///< could not ask, or the server stayed away
    exit_usage = 2
};

/// Where the figures come from.
struct source {
    std::string host; ///< empty: a server inside the program
    int port = 0;
    std::string root = "/";      ///< what the server inside reads in place of /
    bool simulate_board = false; ///< the server inside answers for hardware the host lacks
    std::uint32_t seed = 1;      ///< of the simulated board
    bool verbose = false;        ///< show the library's log
};

/// A command line that was understood, or the status to end with.
struct invocation {
    command_action action; ///< null: end with `status`
    int status = exit_ok;
    source from;
};

/// Reads the command line. Help goes to @p out, complaints to @p err.
/// @param arguments without the program's name
invocation read_command_line(std::vector<std::string> arguments, std::ostream& out,
                             std::ostream& err);

/// How INTERVAL and COUNT may be given.
enum class schedule_form {
    anyhow,      ///< by their place, or as -i and -n
    options_only ///< as -i and -n, for commands whose places are taken
};

/// Adds INTERVAL and COUNT to a command's options.
/// @return the schedule they give, valid once the command line was read
std::shared_ptr<schedule> add_schedule(CLI::App& app, schedule_form form = schedule_form::anyhow);

} // namespace tools

#endif
