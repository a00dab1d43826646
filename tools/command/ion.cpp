// moncl ion: use of every ion heap.
#include "peri_stat_manager.h"

#include "line_end.h"
#include "session.h"

namespace tools {
namespace {

int report(peri_stat_manager& manager, std::ostream* out) {
    const int code = manager.get_ion_info(out);
    if (code >= 0 && out != nullptr && manager.ion_parser->ion_vec.empty())
        *out << "no ion heaps";
    return end_line(code, out);
}

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        peri_stat_manager manager(asking.new_connection());
        return asking.repeat(
            *when, {[&](std::ostream* out) { return report(manager, out); }, {manager.client}});
    };
}

const command_registration registered("ion", "Use of every ion heap", configure);

} // namespace
} // namespace tools
