// moncl delay: the delay report of the video pipeline, as its decoder prints it.
#include "video_command.h"

namespace tools {
namespace {

int report(vio_info_manager& manager, std::ostream& out, std::ostream&) {
    std::string printed;
    const int code = take_output(manager, &vio_info_manager::get_vio_delay, printed);
    out << printed;
    return code;
}

command_action configure(CLI::App& app) {
    return video_command(app, report);
}

const command_registration registered("delay", "Delay report of the video pipeline", configure);

} // namespace
} // namespace tools
