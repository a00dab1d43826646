// The live screen as an output over the model.
#ifndef MONCL_TOOLS_LIVE_OUTPUT_H
#define MONCL_TOOLS_LIVE_OUTPUT_H

#include "output.h"

#include <memory>
#include <sstream>
#include <vector>

namespace tools::live {

/// What the live screen starts with.
struct live_options {
    std::vector<std::string> hosts; ///< the boards, as their sources are called
    double interval = 1;            ///< seconds
    bool replays = false;           ///< the boards are those of a recording
    bool colour = true;
};

/// Takes the terminal over.
/// @param messages what the session says; shown at the foot of the page
/// @return null if there is no terminal, or none that is fit for it
std::unique_ptr<output> open_live_screen(const live_options& options, std::ostringstream& messages);

/// The subjects that any of its views needs.
std::vector<const subject*> live_subjects();

} // namespace tools::live

#endif
