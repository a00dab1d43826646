// Commands of the program besides showing subjects. A command is one file in tools/moncl/ that ends
// in one registration such as
//
//     const command_registration registered({"record", "FILE ...", "Records", 1, {}, false, run});
#ifndef MONCL_TOOLS_COMMAND_H
#define MONCL_TOOLS_COMMAND_H

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

struct invocation;

/// An option that only one command has.
struct command_option {
    const char* name;        ///< such as "--keep"
    const char* placeholder; ///< of its value
    const char* help;
    /// What is wrong with a value; empty if nothing is.
    std::string (*check)(const std::string& text);
};

/// A command. All texts are literals.
struct command {
    const char* name;     ///< first word of the command line; empty: cannot be given
    const char* synopsis; ///< what follows the name
    const char* help;     ///< one line
    std::size_t words;    ///< of its own that stand before subjects, such as a file
    std::vector<command_option> options;
    bool reads_recording; ///< its first word is the file, as with --from
    /// @return the exit status. Exceptions are shown by their texts.
    int (*run)(const invocation& called, std::ostream& err);
};

/// All commands, by name.
const std::vector<command>& all_commands();

/// The command @p name; null if there is none.
const command* find_command(std::string_view name);

/// Registers a command for as long as the program runs.
class command_registration {
public:
    explicit command_registration(command one);
};

} // namespace tools

#endif
