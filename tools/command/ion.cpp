// moncl ion: use of every ion heap.
#include "peripherals.h"

namespace tools {
namespace {

int report(peri_stat_manager& manager, std::ostream* out) {
    const int code = manager.get_ion_info(out);
    if (code >= 0 && out != nullptr && manager.ion_parser->ion_vec.empty())
        *out << "no ion heaps";
    return code;
}

command_action configure(CLI::App& app) {
    return
        [when = add_schedule(app)](session& asking) { return repeat_query(asking, *when, report); };
}

const command_registration registered("ion", "Use of every ion heap", configure);

} // namespace
} // namespace tools
