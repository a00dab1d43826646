// moncl fps: frame rates of camera interface, image signal processor and pyramid scaler, by pipe.
#include "video_command.h"

#include <sstream>

namespace tools {
namespace {

// The table leaves out what it could not get, without a word. A query behind it tells: it fails if
// the server refuses, and over a connection that broke half way, too.
int report(vio_info_manager& manager, std::ostream& out, std::ostream&) {
    std::ostringstream table;
    manager.sort_all_vio_fps(&table);
    if (const int code = manager.get_cim_fps(); code < 0)
        return code;
    out << table.str();
    return 0;
}

command_action configure(CLI::App& app) {
    return video_command(app, report);
}

const command_registration registered("fps", "Frame rates in and out of the video blocks, by pipe",
                                      configure);

} // namespace
} // namespace tools
