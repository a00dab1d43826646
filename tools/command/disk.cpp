// moncl disk: what is read from and written to every block device.
#include "peri_stat_manager.h"

#include "line_end.h"
#include "session.h"

namespace tools {
namespace {

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        peri_stat_manager manager(asking.new_connection());
        const auto query = [&](std::ostream* out) {
            return end_line(manager.get_block_usage(out), out);
        };
        return asking.repeat(*when, {query, {manager.client}, true});
    };
}

const command_registration registered("disk", "Read and write rates of every block device",
                                      configure);

} // namespace
} // namespace tools
