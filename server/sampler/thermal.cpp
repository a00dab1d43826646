// Temperatures of the thermal zones and states of the cooling devices.
#include "sampler.h"

#include "slow_reads.h"

#include <charconv>
#include <filesystem>
#include <memory>

namespace monsrv {
namespace {

// Lines of the combined answer for a sensor without a value. They keep later sensors at their
// index. The first is the kernel's own invalid temperature; a cooling state is never negative.
constexpr std::string_view no_temperature = "-274000\n";
constexpr std::string_view no_state = "-1\n";

/// Sensors of one kind, in folders that end in their number.
struct sensor_kind {
    int count; ///< most that have a request of their own
    const char* folder;
    const char* file;
    std::vector<std::uint64_t> board_figures::*simulated; ///< if the host has none at all
    std::string_view no_value;

    std::string path(std::size_t which) const {
        return class_folder + std::string(folder) + std::to_string(which) + file;
    }

    static constexpr const char* class_folder = "/sys/class/thermal/";
};
const sensor_kind cooling_devices{peripheral_request::cooling_count, "cooling_device", "/cur_state",
                                  &board_figures::cooling, no_state};
const sensor_kind thermal_zones{peripheral_request::thermal_count, "thermal_zone", "/temp",
                                &board_figures::temperatures, no_temperature};
// The most that the count byte of the answer can hold.
constexpr std::size_t sensors_max = 255;

std::string figure_line(std::int64_t figure) {
    return std::to_string(figure) + "\n";
}

slow_reads::outcome check_figure(slow_reads::outcome read) {
    if (read.result < 0)
        return read;
    std::int64_t figure = 0;
    const char* start = read.bytes.data();
    if (std::from_chars(start, start + read.bytes.size(), figure).ec != std::errc())
        return {-EIO, {}};
    return {0, figure_line(figure)};
}

/// Reads sensors. A driver may be slow, so each sensor is read in a thread apart from the one that
/// answers.
class sensors {
public:
    explicit sensors(const host& env) : env_(env) {}

    int sample_one(const sensor_kind& kind, int which, reply& answer) {
        const auto index = static_cast<std::size_t>(which);
        const auto stand_ins = sensor_count(kind) == 0 ? simulated(kind) : figures();
        if (index < stand_ins.size()) {
            answer.add_lines(stand_ins[index]);
            return 0;
        }
        const std::string file = kind.path(index);
        const slow_reads::outcome figure = read({file}).at(file);
        if (figure.result < 0)
            return figure.result;
        answer.add_lines(figure.bytes);
        return 0;
    }

    int sample_all(reply& answer) {
        // Both kinds are read at once: together they may take as long as one.
        const std::size_t cooling_count = sensor_count(cooling_devices);
        const std::size_t zone_count = sensor_count(thermal_zones);
        std::vector<std::string> files;
        for (std::size_t i = 0; i < cooling_count; ++i)
            files.push_back(cooling_devices.path(i));
        for (std::size_t i = 0; i < zone_count; ++i)
            files.push_back(thermal_zones.path(i));
        const auto outcomes = read(files);
        figures all[] = {texts(cooling_devices, cooling_count, outcomes),
                         texts(thermal_zones, zone_count, outcomes)};
        std::size_t room = answer.room() - 2;
        for (figures& kind : all) {
            std::size_t fitting = 0;
            for (; fitting < kind.size() && kind[fitting].size() + 1 <= room; ++fitting)
                room -= kind[fitting].size() + 1;
            kind.resize(fitting);
            answer.add_record(static_cast<std::uint8_t>(fitting));
        }
        for (const figures& kind : all)
            for (const std::string& text : kind)
                answer.add(text.c_str(), text.size() + 1);
        return 0;
    }

private:
    using outcomes_by_file = std::map<std::string, slow_reads::outcome>;
    using figures = std::vector<std::string>; // a line each

    outcomes_by_file read(const std::vector<std::string>& files) {
        std::map<std::string, slow_reads::work> wanted;
        for (const std::string& file : files)
            wanted[file] = [path = env_.path(file)] {
                return check_figure(slow_reads::read_file(path));
            };
        return reads_.run(wanted);
    }

    // One more than the highest number of a sensor: numbers in between may be missing.
    std::size_t sensor_count(const sensor_kind& kind) const {
        const std::string_view prefix = kind.folder;
        std::size_t count = 0;
        std::error_code error;
        for (std::filesystem::directory_iterator it(env_.path(sensor_kind::class_folder), error),
             end;
             !error && it != end; it.increment(error)) {
            const std::string name = it->path().filename();
            std::size_t number = 0;
            const char* const name_end = name.data() + name.size();
            if (name.compare(0, prefix.size(), prefix) != 0 ||
                std::from_chars(name.data() + prefix.size(), name_end, number).ptr != name_end)
                continue;
            if (number < sensors_max)
                count = std::max(count, number + 1);
        }
        return count;
    }

    figures simulated(const sensor_kind& kind) const {
        figures all;
        if (env_.board() == nullptr)
            return all;
        const board_figures now = env_.board()->now();
        for (const std::uint64_t figure : now.*kind.simulated)
            all.push_back(figure_line(static_cast<std::int64_t>(figure)));
        return all;
    }

    figures texts(const sensor_kind& kind, std::size_t count,
                  const outcomes_by_file& outcomes) const {
        if (count == 0)
            return simulated(kind);
        figures all;
        for (std::size_t i = 0; i < count; ++i) {
            const slow_reads::outcome& outcome = outcomes.at(kind.path(i));
            all.push_back(outcome.result < 0 ? std::string(kind.no_value) : outcome.bytes);
        }
        return all;
    }

    const host& env_;
    slow_reads reads_{threads_max};
    // Reads that may hang before all others have to wait for them.
    static constexpr std::size_t threads_max = 64;
};

void install(sampler_table& table, const host& env) {
    auto all = std::make_shared<sensors>(env);
    const std::size_t thread = table.add_slow_thread();
    const auto answer_each = [&table, &all, thread](const sensor_kind& kind,
                                                    int first_sub_command) {
        for (int i = 0; i < kind.count; ++i)
            table.on_slow(
                thread, peripheral_command, first_sub_command + i,
                [all, &kind, i](const request&, reply& answer) {
                    return all->sample_one(kind, i, answer);
                },
                sharing::among_clients);
    };
    answer_each(cooling_devices, peripheral_request::cooling);
    answer_each(thermal_zones, peripheral_request::thermal);
    table.on_slow(
        thread, peripheral_command, peripheral_request::all_thermal,
        [all](const request&, reply& answer) { return all->sample_all(answer); },
        sharing::among_clients);
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
