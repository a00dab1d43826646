// moncl nnu: load of both accelerator cores.
#include "nnu_ratio_manager.h"

#include "session.h"

#include <sstream>

namespace tools {
namespace {

// The library writes the heading before it knows whether there is a load.
int report(nnu_ratio_manager& manager, std::ostream& out) {
    std::ostringstream text;
    if (const int code = manager.get_nnu_ratio_all(&text); code < 0)
        return code;
    if (const int code = manager.get_nnu1_ratio(&text); code < 0)
        return code;
    out << text.str();
    return 0;
}

command_action configure(CLI::App& app) {
    return [when = add_schedule(app)](session& asking) {
        nnu_ratio_manager manager(asking.new_connection());
        return asking.repeat(
            *when, {[&](std::ostream* out) { return report(manager, *out); }, {manager.client}});
    };
}

const command_registration registered("nnu", "Load of both accelerator cores", configure);

} // namespace
} // namespace tools
