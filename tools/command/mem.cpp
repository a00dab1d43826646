// moncl mem: memory of the machine.
#include "peri_stat_manager.h"

#include "line_end.h"
#include "session.h"

namespace tools {
namespace {

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        peri_stat_manager manager(asking.new_connection());
        const auto query = [&](std::ostream* out) {
            return end_line(manager.get_meminfo(out), out);
        };
        return asking.repeat(*when, {query, {manager.client}});
    };
}

const command_registration registered("mem", "Memory of the machine", configure);

} // namespace
} // namespace tools
