// Temperatures of the thermal zones and states of the cooling devices.
#include "sampler.h"

#include "slow_reads.h"

#include <charconv>
#include <memory>

namespace monsrv {
namespace {

constexpr int cooling_devices = 2;
constexpr int thermal_zones = 16;
// What the combined answer says of a sensor without a figure; clients take it for 0. The others
// thus keep their places. An empty text would repeat the figure before it.
constexpr std::string_view no_figure = "unknown";

std::string cooling_file(int device) {
    return "/sys/class/thermal/cooling_device" + std::to_string(device) + "/cur_state";
}

std::string zone_file(int zone) {
    return "/sys/class/thermal/thermal_zone" + std::to_string(zone) + "/temp";
}

// Clients know no negative figures.
slow_reads::outcome check_figure(slow_reads::outcome read) {
    if (read.result < 0)
        return read;
    unsigned long long figure = 0;
    const char* start = read.bytes.data();
    const auto parsed = std::from_chars(start, start + read.bytes.size(), figure);
    if (parsed.ec == std::errc())
        return {0, std::to_string(figure) + "\n"};
    return {!read.bytes.empty() && read.bytes.front() == '-' ? -ERANGE : -EIO, {}};
}

/// Reads sensors; a driver may take its time, so each is read aside.
class sensors {
public:
    explicit sensors(const host& env) : env_(env) {}

    int sample_one(const std::string& file, reply& answer) {
        const slow_reads::outcome figure = read({file}).at(file);
        if (figure.result < 0)
            return figure.result;
        answer.add_lines(figure.bytes);
        return 0;
    }

    int sample_all(reply& answer) {
        std::vector<std::string> cooling;
        for (int i = 0; i < cooling_devices; ++i)
            cooling.push_back(cooling_file(i));
        std::vector<std::string> zones;
        for (int i = 0; i < thermal_zones; ++i)
            zones.push_back(zone_file(i));
        std::vector<std::string> files = cooling;
        files.insert(files.end(), zones.begin(), zones.end());

        const auto figures = read(files);
        drop_absent(cooling, figures);
        drop_absent(zones, figures);
        answer.add_record(static_cast<std::uint8_t>(cooling.size()));
        answer.add_record(static_cast<std::uint8_t>(zones.size()));
        for (const auto* kind : {&cooling, &zones})
            for (const std::string& file : *kind)
                add_text(figures.at(file), answer);
        return 0;
    }

private:
    using figures_by_file = std::map<std::string, slow_reads::outcome>;

    figures_by_file read(const std::vector<std::string>& files) {
        std::map<std::string, slow_reads::work> wanted;
        for (const std::string& file : files)
            wanted[file] = [path = env_.path(file)] {
                return check_figure(slow_reads::read_file(path));
            };
        return reads_.run(wanted);
    }

    // Cuts off what does not exist behind the last one that does.
    static void drop_absent(std::vector<std::string>& files, const figures_by_file& figures) {
        while (!files.empty() && figures.at(files.back()).result == -ENOENT)
            files.pop_back();
    }

    static void add_text(const slow_reads::outcome& figure, reply& answer) {
        const std::string_view text = figure.result < 0 ? no_figure : figure.bytes;
        answer.add(text.data(), text.size());
        answer.add("", 1);
    }

    const host& env_;
    slow_reads reads_{cooling_devices + thermal_zones};
};

void install(sampler_table& table, const host& env) {
    auto all = std::make_shared<sensors>(env);
    for (int i = 0; i < cooling_devices; ++i)
        table.on(0xAE06, 1 + i, [all, i](const request&, reply& answer) {
            return all->sample_one(cooling_file(i), answer);
        });
    for (int i = 0; i < thermal_zones; ++i)
        table.on(0xAE06, 3 + i, [all, i](const request&, reply& answer) {
            return all->sample_one(zone_file(i), answer);
        });
    table.on(0xAE06, 19, [all](const request&, reply& answer) { return all->sample_all(answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
