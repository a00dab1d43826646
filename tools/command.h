// What a command of the console program is. A command is one file under tools/command/ that ends in
// one line such as
//
//     const command_registration registered("mem", "Memory of the machine", configure);
#ifndef MONCL_TOOLS_COMMAND_H
#define MONCL_TOOLS_COMMAND_H

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tools {

class session;

/// Runs a command whose options have been read.
/// @return the exit status
using command_action = std::function<int(session&)>;

/// One command.
struct command {
    std::string name;
    std::string summary; ///< one line of help
    /// Adds the command's options to its part of the command line; the action reads what they were
    /// set to.
    command_action (*configure)(CLI::App& app);
};

/// All registered commands, by name.
std::vector<command> all_commands();

/// Registers a command.
class command_registration {
public:
    command_registration(const char* name, const char* summary,
                         command_action (*configure)(CLI::App& app));
};

} // namespace tools

#endif
