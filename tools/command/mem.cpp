// moncl mem: memory of the machine.
#include "peripherals.h"

namespace tools {
namespace {

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        return repeat_query(asking, *when, std::mem_fn(&peri_stat_manager::get_meminfo));
    };
}

const command_registration registered("mem", "Memory of the machine", configure);

} // namespace
} // namespace tools
