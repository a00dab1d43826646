// moncl irq: the interrupt table.
#include "cpu_stat_manager.h"

#include "session.h"

namespace tools {
namespace {

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        cpu_stat_manager manager(asking.new_connection());
        return asking.repeat(*when, {[&](std::ostream* out) { return manager.get_interrupt(out); },
                                     {manager.client}});
    };
}

const command_registration registered("irq", "Interrupts handled by every CPU", configure);

} // namespace
} // namespace tools
