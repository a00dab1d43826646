// Temperatures by zone.
#include "block.h"

#include "drawing.h"

namespace tools::live {
namespace {

// Most chips slow themselves down between these.
constexpr double warm = 70;
constexpr double hot = 85;

std::vector<styled_line> draw(const block_request& what) {
    const latest_sample* zones = what.board.find("thermal");
    if (zones == nullptr)
        return {};
    std::vector<styled_line> items;
    for (std::size_t i = 0; i < zones->figures.rows.size(); ++i) {
        const double celsius = zones->number(i, "temperature_celsius").value_or(0);
        const look how = celsius >= hot    ? look::alarm
                         : celsius >= warm ? look::warning
                                           : look::plain;
        items.push_back({{"zone" + zones->text(i, "zone") + " ", look::dim},
                         {zones->text(i, "temperature_celsius"), how}});
    }
    return flow("Temp", items, what.width, what.rows);
}

const block_registration registered({"sensors", 40, {1, 1, 2}, draw});

} // namespace
} // namespace tools::live
