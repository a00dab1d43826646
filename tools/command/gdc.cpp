// moncl gdc: output frame rates of the distortion correction, by pipe.
#include "video_command.h"

#include <iomanip>
#include <map>

namespace tools {
namespace {

int report(vio_info_manager& manager, std::ostream& out, std::ostream&) {
    if (const int code = manager.get_gdc_fps(); code < 0)
        return code;
    const std::map by_pipe(manager.gdc_parse->fps.begin(), manager.gdc_parse->fps.end());
    out << std::right << std::setw(5) << "PIPE" << std::setw(5) << "FPS"
        << "  BLOCK\n";
    for (const auto& [pipe, rates] : by_pipe)
        out << std::setw(5) << pipe << std::setw(5) << rates->output_fps << "  " << rates->ip_name
            << "\n";
    return 0;
}

command_action configure(CLI::App& app) {
    return video_command(app, report);
}

const command_registration registered("gdc", "Output frame rates of the distortion correction",
                                      configure);

} // namespace
} // namespace tools
