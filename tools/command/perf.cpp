// moncl perf: hardware and kernel event counters of the whole machine.
#include "cpu_stat_manager.h"

#include "session.h"

#include <cerrno>

namespace tools {
namespace {

// Counting starts again with each report, so that its figures and its time are of one interval.
int report(cpu_stat_manager& manager, std::ostream* out) {
    if (!manager.perf_parser->enabled)
        return manager.enable_perf_mon();
    const int code = manager.get_perf_data(out);
    // A server that was restarted unnoticed does not count: the next time must begin anew.
    if (code == -ENODATA)
        manager.perf_parser->enabled = false;
    return code < 0 ? code : manager.enable_perf_mon();
}

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        cpu_stat_manager manager(asking.new_connection());
        return asking.repeat(*when, {[&](std::ostream* out) { return report(manager, out); },
                                     {manager.client},
                                     true,
                                     [&] { return manager.enable_perf_mon(); }});
    };
}

const command_registration registered("perf", "Hardware and kernel event counters", configure);

} // namespace
} // namespace tools
