// moncl thermal: temperatures and states of cooling devices, all of them or one.
#include "peripherals.h"

#include <CLI/CLI.hpp>
#include <iomanip>

namespace tools {
namespace {

struct choice {
    int zone = -1;
    int cooling = -1;
};

void show(std::uint64_t figure, std::int64_t unknown, std::ostream& out) {
    if (is_known(figure, unknown))
        out << static_cast<std::int64_t>(figure);
    else
        out << "-";
}

void show_all(const char* label, const std::vector<std::uint64_t>& figures, std::int64_t unknown,
              std::ostream& out) {
    out << std::left << std::setw(16) << label;
    for (const std::uint64_t figure : figures) {
        out << std::setw(7);
        show(figure, unknown, out);
    }
}

// The reports of the library write a temperature below zero as a huge one.
int ask(peri_stat_manager& manager, const choice& which, std::ostream* out) {
    if (which.zone >= 0) {
        const int code = manager.get_thermal(peripheral_request::thermal + which.zone, nullptr);
        if (code >= 0 && out != nullptr)
            show(manager.th_parser->temp, unknown_temperature, *out);
        return code;
    }
    if (which.cooling == 0)
        return manager.get_cooling_0(out);
    if (which.cooling == 1)
        return manager.get_cooling_1(out);
    const int code = manager.get_all_thermal(nullptr);
    if (code >= 0 && out != nullptr) {
        show_all("Thermal(mC):", manager.all_th_parser->all_th, unknown_temperature, *out);
        show_all("Cooling_stat:", manager.all_th_parser->all_co, unknown_state, *out);
    }
    return code;
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
