// Taking samples in.
#include "board_view.h"

#include "figure_text.h"

namespace tools::live {

namespace {
std::optional<double> add(std::optional<double> a, std::optional<double> b) {
    return a && b ? std::optional(*a + *b) : std::nullopt;
}

// The mean over the rows of a subject; nothing if it has none.
std::optional<double> mean(const latest_sample* from, std::string_view field_name) {
    if (from == nullptr)
        return std::nullopt;
    const auto sum = from->sum(field_name);
    return sum ? std::optional(*sum / static_cast<double>(from->figures.rows.size()))
               : std::nullopt;
}
} // namespace

std::optional<double> latest_sample::number(std::size_t at, std::string_view field_name) const {
    const std::size_t i = what->index_of(field_name);
    return number_in_unit(what->fields[i], figures.rows[at].values[i]);
}

std::string latest_sample::text(std::size_t at, std::string_view field_name) const {
    const std::size_t i = what->index_of(field_name);
    return cell_text(what->fields[i], figures.rows[at].values[i]);
}

std::optional<double> latest_sample::sum(std::string_view field_name) const {
    const std::size_t i = what->index_of(field_name);
    std::optional<double> total;
    for (const row& each : figures.rows)
        if (const auto v = number_in_unit(what->fields[i], each.values[i]); v && !each.is_total)
            total = total.value_or(0) + *v;
    return total;
}

board_view::board_view(std::string name) : host(std::move(name)), last_answer(clock::now()) {}

void board_view::take(const shown_sample& each) {
    // After a step back in a recording the graphs must not show what came later.
    if (each.figures.time < time)
        for (graph* past : {&cpu, &network, &disk, &accelerator})
            past->values = {};
    time = each.figures.time;
    samples_.insert_or_assign(each.what.name, latest_sample{&each.what, each.figures});
}

void board_view::end_report(bool is_away, clock::time_point now) {
    away = is_away;
    if (away) {
        samples_.clear(); // they may be out of date when it returns
    } else {
        last_answer = now;
    }
    const latest_sample* cpus = find("cpu");
    cpu.values.add(cpus == nullptr ? std::nullopt : cpus->number(0, "usage_percent"));
    const latest_sample* devices = find("net");
    network.values.add(devices == nullptr ? std::nullopt : devices->sum("bytes_per_second"));
    const latest_sample* disks = find("disk");
    disk.values.add(disks == nullptr ? std::nullopt
                                     : add(disks->sum("read_bytes_per_second"),
                                           disks->sum("written_bytes_per_second")));
    accelerator.values.add(mean(find("nnu"), "usage_percent"));
}

const latest_sample* board_view::find(std::string_view name) const {
    const auto found = samples_.find(name);
    return found == samples_.end() || found->second.figures.rows.empty() ? nullptr : &found->second;
}

} // namespace tools::live
