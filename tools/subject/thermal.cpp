// Temperatures of the thermal zones and states of the cooling devices, which one answer holds.
#include "board.h"
#include "subject.h"

namespace tools {
namespace {

// The most of either kind: their count is one byte.
constexpr std::size_t sensors_max = 255;
// In 1/1000 degree. Lower values are no temperatures; a zone that cannot be read has -274000.
constexpr std::int64_t absolute_zero = -273150;

constexpr const char* no_zones = "this host has no thermal zones (try --simulate-board)";
constexpr const char* no_devices = "this host has no cooling devices (try --simulate-board)";

int query(board& server) {
    return server.once("all_thermal",
                       [&server] { return server.peripherals.get_all_thermal(nullptr); });
}

// The decoder reads negative numbers, too, but keeps them modulo 2^64.
std::int64_t signed_value(std::uint64_t decoded) {
    return static_cast<std::int64_t>(decoded);
}

// A row's label is the sensor's index in the answer, so sensors without a value keep their rows.
void add_rows(const std::vector<std::uint64_t>& decoded, std::int64_t least, const char* none,
              sample& into) {
    for (std::size_t i = 0; i < decoded.size(); ++i) {
        const std::int64_t figure = signed_value(decoded[i]);
        into.add(std::to_string(i), figure < least ? value() : value(figure));
    }
    if (decoded.empty())
        into.faults.emplace_back(none);
    if (decoded.size() == sensors_max)
        into.notes.push_back("the server names at most " + std::to_string(sensors_max) +
                             " thermal zones and as many cooling devices");
}

int ask_thermal(board& server, sample& into) {
    const int code = query(server);
    if (code >= 0)
        add_rows(server.peripherals.all_th_parser->all_th, absolute_zero, no_zones, into);
    return code;
}

int ask_cooling(board& server, sample& into) {
    const int code = query(server);
    if (code >= 0)
        add_rows(server.peripherals.all_th_parser->all_co, 0, no_devices, into);
    return code;
}

int report(board& server, std::ostream& out) {
    const int code = server.peripherals.get_all_thermal(&out);
    out << "\n";
    return code;
}

const subject_registration registered_thermal([] {
    subject thermal{"thermal",
                    "thermal_zone",
                    "Temperatures of the thermal zones",
                    {label("zone", "Zone", "Number of the thermal zone"),
                     gauge("temperature_celsius", unit::celsius, "Temperature")
                         .counted_in(1000)
                         .column("Celsius")},
                    [](const selection&) -> asker { return ask_thermal; }};
    thermal.lacking = no_zones;
    thermal.library_report = report;
    thermal.place = 70;
    thermal.summary_rows = 6;
    return thermal;
}());

const subject_registration registered_cooling([] {
    subject cooling{
        "cooling",
        "cooling_device",
        "States of the cooling devices",
        {label("device", "Device", "Number of the cooling device"),
         gauge("state", unit::none, "State, on the device's own scale; 0 is off").column("state")},
        [](const selection&) -> asker { return ask_cooling; }};
    cooling.lacking = no_devices;
    cooling.library_report = report;
    cooling.place = 71;
    return cooling;
}());

} // namespace
} // namespace tools
