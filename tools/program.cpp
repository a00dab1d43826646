// From command line to exit status.
#include "program.h"

#include "command_line.h"
#include "log_filter.h"
#include "session.h"

#include <exception>

namespace tools {

bool show_log = false;

int run_program(std::vector<std::string> arguments, std::ostream& out, std::ostream& err) {
    const invocation called = read_command_line(std::move(arguments), out, err);
    if (!called.action)
        return called.status;
    show_log = called.from.verbose;
    try {
        session asking(called.from, out, err);
        try {
            return called.action(asking);
        } catch (const char* failure) {
            err << "moncl: " << failure << ", at " << asking.host() << ":" << asking.port() << "\n";
        }
    } catch (const std::exception& e) {
        err << "moncl: " << e.what() << "\n";
    }
    return exit_failed;
}

} // namespace tools
