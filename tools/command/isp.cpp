// moncl isp: use cases of the image signal processors.
#include "video_command.h"

#include <iomanip>

namespace tools {
namespace {

int report(vio_info_manager& manager, std::ostream& out, std::ostream& err) {
    if (const int code = drop_reports(manager, &vio_info_manager::get_isp_info, err); code < 0)
        return code;
    out << std::right << std::setw(5) << "PIPE" << std::setw(7) << "WIDTH" << std::setw(8)
        << "HEIGHT" << std::setw(5) << "FPS" << std::setw(10) << "CONTEXTS" << std::setw(8)
        << "ACTIVE" << std::setw(10) << "INACTIVE"
        << "  SCHEDULING\n";
    for (const auto& each : manager.isp_parse->info)
        out << std::setw(5) << each->pipe_id << std::setw(7) << each->s_Width << std::setw(8)
            << each->s_Height << std::setw(5) << each->frame_rate << std::setw(10)
            << shown_character(each->ctx_count) << std::setw(8) << shown_character(each->active)
            << std::setw(10) << shown_character(each->unactive) << "  " << each->dev_sched_mode
            << "\n";
    return 0;
}

command_action configure(CLI::App& app) {
    return video_command(app, report);
}

const command_registration registered("isp", "Use cases of the image signal processors", configure);

} // namespace
} // namespace tools
