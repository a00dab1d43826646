// moncl disk: what is read from and written to every block device.
#include "peripherals.h"

namespace tools {
namespace {

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        return repeat_query(asking, *when, std::mem_fn(&peri_stat_manager::get_block_usage), true);
    };
}

const command_registration registered("disk", "Read and write rates of every block device",
                                      configure);

} // namespace
} // namespace tools
