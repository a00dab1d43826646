// moncl thermal: temperatures and states of cooling devices, all of them or one.
#include "peripherals.h"

#include <CLI/CLI.hpp>

namespace tools {
namespace {

// The server's number of the query for thermal zone 0; the other zones follow.
constexpr int first_zone = 3;

struct choice {
    int zone = -1;
    int cooling = -1;
};

int ask(peri_stat_manager& manager, const choice& which, std::ostream* out) {
    if (which.zone >= 0)
        return manager.get_thermal(first_zone + which.zone, out);
    if (which.cooling == 0)
        return manager.get_cooling_0(out);
    if (which.cooling == 1)
        return manager.get_cooling_1(out);
    return manager.get_all_thermal(out);
}

command_action configure(CLI::App& app) {
    auto which = std::make_shared<choice>();
    auto* zone = app.add_option("--zone", which->zone, "Only the temperature of thermal zone N");
    zone->check(CLI::Range(0, 15))->option_text("N");
    app.add_option("--cooling", which->cooling, "Only the state of cooling device N")
        ->check(CLI::Range(0, 1))
        ->option_text("N")
        ->excludes(zone);
    return [which, when = add_schedule(app)](session& asking) {
        return repeat_query(asking, *when, [&which](peri_stat_manager& manager, std::ostream* out) {
            return ask(manager, *which, out);
        });
    };
}

const command_registration registered("thermal", "Temperatures and states of cooling devices",
                                      configure);

} // namespace
} // namespace tools
