// moncl pym: sizes and dropped frames of the pyramid scalers.
#include "video_command.h"

#include <iomanip>

namespace tools {
namespace {

int report(vio_info_manager& manager, std::ostream& out, std::ostream& err) {
    if (const int code = drop_reports(manager, &vio_info_manager::get_pym_stat, err); code < 0)
        return code;
    out << std::right << std::setw(5) << "PYM" << std::setw(6) << "MODE" << std::setw(7) << "WIDTH"
        << std::setw(8) << "HEIGHT" << std::setw(12) << "HW-DROPS" << std::setw(12) << "SW-DROPS"
        << std::setw(12) << "ISP-DROPS"
        << "\n";
    int instance = 0;
    for (const auto& each : manager.pym_parse->stat)
        out << std::setw(5) << instance++ << std::setw(6) << shown_character(each->mode)
            << std::setw(7) << each->input_width << std::setw(8) << each->input_height
            << std::setw(12) << each->hw_drop_cnt << std::setw(12) << each->sw_drop_cnt
            << std::setw(12) << each->isp_drop_cnt << "\n";
    return 0;
}

command_action configure(CLI::App& app) {
    return video_command(app, report);
}

const command_registration registered("pym", "Sizes and dropped frames of the pyramid scalers",
                                      configure);

} // namespace
} // namespace tools
