// The program as a whole.
#ifndef MONCL_TOOLS_PROGRAM_H
#define MONCL_TOOLS_PROGRAM_H

#include <ostream>
#include <string>
#include <vector>

namespace tools {

/// Reads the command line, opens a session and runs the command in it.
/// @return the exit status
int run_program(std::vector<std::string> arguments, std::ostream& out, std::ostream& err);

} // namespace tools

#endif
