// Temperatures of the thermal zones and states of the cooling devices.
#include "sampler.h"

#include "slow_reads.h"

#include <charconv>
#include <filesystem>
#include <memory>

namespace monsrv {
namespace {

// What the combined answer says of a sensor without a figure; clients take it for 0. The others
// thus keep their places. An empty text would repeat the figure before it.
constexpr std::string_view no_figure = "unknown";

std::string cooling_file(int device) {
    return "/sys/class/thermal/cooling_device" + std::to_string(device) + "/cur_state";
}

std::string zone_file(int zone) {
    return "/sys/class/thermal/thermal_zone" + std::to_string(zone) + "/temp";
}

/// Sensors that are counted from 0.
struct sensor_kind {
    int count; ///< most that are asked for
    std::string (*file)(int which);
    std::vector<std::uint64_t> board_figures::*simulated; ///< if the host has none at all

    std::vector<std::string> files() const {
        std::vector<std::string> all;
        all.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i)
            all.push_back(file(i));
        return all;
    }
};
const sensor_kind cooling_devices{peripheral_request::cooling_count, cooling_file,
                                  &board_figures::cooling};
const sensor_kind thermal_zones{peripheral_request::thermal_count, zone_file,
                                &board_figures::temperatures};

std::string figure_line(std::uint64_t figure) {
    return std::to_string(figure) + "\n";
}

// Clients know no negative figures.
slow_reads::outcome check_figure(slow_reads::outcome read) {
    if (read.result < 0)
        return read;
    std::uint64_t figure = 0;
    const char* start = read.bytes.data();
    const auto parsed = std::from_chars(start, start + read.bytes.size(), figure);
    if (parsed.ec == std::errc())
        return {0, figure_line(figure)};
    return {!read.bytes.empty() && read.bytes.front() == '-' ? -ERANGE : -EIO, {}};
}

/// Reads sensors; a driver may take its time, so each is read aside.
class sensors {
public:
    explicit sensors(const host& env) : env_(env) {}

    int sample_one(const sensor_kind& kind, int which, reply& answer) {
        const auto stand_ins = simulated(kind);
        if (static_cast<std::size_t>(which) < stand_ins.size()) {
            answer.add_lines(figure_line(stand_ins[static_cast<std::size_t>(which)]));
            return 0;
        }
        const std::string file = kind.file(which);
        const slow_reads::outcome figure = read({file}).at(file);
        if (figure.result < 0)
            return figure.result;
        answer.add_lines(figure.bytes);
        return 0;
    }

    int sample_all(reply& answer) {
        std::vector<std::string> files = cooling_devices.files();
        for (const std::string& file : thermal_zones.files())
            files.push_back(file);
        const auto figures = read(files);
        const auto cooling = texts(cooling_devices, figures);
        const auto zones = texts(thermal_zones, figures);
        answer.add_record(static_cast<std::uint8_t>(cooling.size()));
        answer.add_record(static_cast<std::uint8_t>(zones.size()));
        for (const auto* kind : {&cooling, &zones})
            for (const std::string& text : *kind)
                answer.add(text.c_str(), text.size() + 1);
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

    // Figures of the board, if there is one, for a kind of sensor of which the host has none.
    std::vector<std::uint64_t> simulated(const sensor_kind& kind) const {
        if (env_.board() == nullptr)
            return {};
        for (const std::string& file : kind.files())
            if (std::error_code error; std::filesystem::exists(env_.path(file), error))
                return {};
        return env_.board()->now().*kind.simulated;
    }

    // The texts of a kind, without those that do not exist behind the last one that does.
    std::vector<std::string> texts(const sensor_kind& kind, const figures_by_file& figures) const {
        std::vector<std::string> all;
        for (const std::uint64_t figure : simulated(kind))
            all.push_back(figure_line(figure));
        if (!all.empty())
            return all;
        std::vector<std::string> files = kind.files();
        while (!files.empty() && figures.at(files.back()).result == -ENOENT)
            files.pop_back();
        for (const std::string& file : files) {
            const slow_reads::outcome& figure = figures.at(file);
            all.push_back(figure.result < 0 ? std::string(no_figure) : figure.bytes);
        }
        return all;
    }

    const host& env_;
    slow_reads reads_{static_cast<std::size_t>(cooling_devices.count + thermal_zones.count)};
};

void install(sampler_table& table, const host& env) {
    auto all = std::make_shared<sensors>(env);
    const auto answer_each = [&table, &all](const sensor_kind& kind, int first_sub_command) {
        for (int i = 0; i < kind.count; ++i)
            table.on(peripheral_command, first_sub_command + i,
                     [all, &kind, i](const request&, reply& answer) {
                         return all->sample_one(kind, i, answer);
                     });
    };
    answer_each(cooling_devices, peripheral_request::cooling);
    answer_each(thermal_zones, peripheral_request::thermal);
    table.on(peripheral_command, peripheral_request::all_thermal,
             [all](const request&, reply& answer) { return all->sample_all(answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
