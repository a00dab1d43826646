// The command line of the console program, from arguments to what is to be done.
#ifndef MONCL_TOOLS_COMMAND_LINE_H
#define MONCL_TOOLS_COMMAND_LINE_H

#include "command.h"
#include "endpoint.h"
#include "schedule.h"
#include "subject.h"
#include "time_text.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace tools {

/// Exit status of the program.
enum exit_status {
    exit_ok = 0,
    exit_failed = 1, ///< could not ask or write, or the server stayed away
    exit_usage = 2
};

/// A command line that was understood, or the status to end with.
struct invocation {
    bool ends = false; ///< the program ends at once, with `status`
    int status = exit_ok;

    const command* does = nullptr;              ///< null: shows subjects
    std::vector<std::string> words;             ///< the command's own
    std::map<std::string, std::string> options; ///< the command's own, by name

    std::vector<const subject*> subjects; ///< for a command: empty if none was named
    bool summary = false;                 ///< no subject was named: one page about the machine
    selection chosen;
    schedule when;

    std::string form = "table";
    bool library_report = false;
    bool time_column = false;
    std::string colour = "auto"; ///< or "always" or "never"

    std::string from; ///< file of a recording to ask in place of a server; may be empty
    std::string host; ///< of the recording; empty: all
    std::optional<given_time> since;
    std::optional<given_time> until;

    std::vector<endpoint> servers; ///< with their keys; empty: a server inside the program
    std::string root = "/";        ///< what the server inside reads in place of /
    bool simulate_board = false;   ///< the server inside answers for hardware the host lacks
    std::uint32_t seed = 1;        ///< of the simulated board
    bool verbose = false;          ///< show the library's log
};

/// Reads the command line, MONCL_CONNECT, and MONCL_KEY and MONCL_SERVER_KEY with their files. Help
/// goes to @p out, complaints to @p err.
/// @param words without the program's name
invocation read_command_line(std::vector<std::string> words, std::ostream& out, std::ostream& err);

} // namespace tools

#endif
