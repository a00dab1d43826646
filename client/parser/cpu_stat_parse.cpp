// CPU usage from the CPU-time table.
#include "cpu_stat.h"

#include "text_reader.h"

#include <algorithm>
#include <exception>
#include <iomanip>
#include <iostream>

namespace {
constexpr std::uint64_t cpu_stat::*counters[] = {
    &cpu_stat::user, &cpu_stat::nice,    &cpu_stat::system, &cpu_stat::idle,  &cpu_stat::iowait,
    &cpu_stat::irq,  &cpu_stat::softirq, &cpu_stat::steal,  &cpu_stat::guest, &cpu_stat::guest_nice,
};

// A line with too few counters leaves the rest 0.
std::shared_ptr<cpu_stat> read_cpu(text_reader fields) {
    auto cpu = std::make_shared<cpu_stat>();
    std::string_view name;
    fields.word(name);
    cpu->cpu = name;
    for (auto counter : counters)
        if (!fields.number((*cpu).*counter))
            break;
    return cpu;
}

std::uint64_t total_time(const cpu_stat& s) {
    return s.user + s.nice + s.system + s.idle + s.iowait + s.irq + s.softirq + s.steal;
}
} // namespace

int cpus_stats_parser::parse_cpu_stats(unsigned char* msg) {
    stats = std::make_unique<std::vector<std::shared_ptr<cpu_stat>>>();
    if (take_sample(payload_text(msg)) == 0)
        return 0;
    last_stats = std::move(stats);
    return 1;
}

int cpus_stats_parser::parse_sys_stat(const std::string& text) {
    return take_sample(text);
}

int cpus_stats_parser::take_sample(std::string_view text) {
    try {
        if (last_stats)
            stats->reserve(last_stats->size());
        text_reader lines(text);
        for (std::string_view line; lines.next_line(line);)
            if (line.substr(0, 3) == "cpu")
                stats->push_back(read_cpu(lines.fields_of(line)));
        if (last_stats) {
            // Records pair by position, as far as both samples go.
            const std::size_t pairs = std::min(stats->size(), last_stats->size());
            for (std::size_t i = 0; i < pairs; ++i)
                cal_cpu_usage((*stats)[i], (*last_stats)[i]);
        }
        return 1;
    } catch (const std::exception& e) {
        std::cout << "parse_sys_stat failed!" << e.what() << std::endl;
        return 0;
    }
}

void cpus_stats_parser::cal_cpu_usage(std::shared_ptr<cpu_stat> cur,
                                      std::shared_ptr<cpu_stat> prev) {
    cur->total_delta = total_time(*cur) - total_time(*prev);
    const auto total = static_cast<double>(cur->total_delta);
    // Idle and I/O wait are subtracted as unsigned numbers, the others as floating-point ones. Of a
    // counter that runs backwards the former give a huge share and the latter a negative one, and
    // both are meant to.
    auto counted = [total](std::uint64_t now, std::uint64_t then) {
        return static_cast<double>(now - then) / total;
    };
    auto measured = [total](std::uint64_t now, std::uint64_t then) {
        return (static_cast<double>(now) - static_cast<double>(then)) / total * 100.0;
    };
    cur->cpu_usage = (1.0 - counted(cur->idle, prev->idle)) * 100.0;
    cur->iowait_ratio = counted(cur->iowait, prev->iowait) * 100.0;
    cur->user_ratio = measured(cur->user, prev->user);
    cur->sys_ratio = measured(cur->system, prev->system);
    cur->irq_ratio = measured(cur->irq, prev->irq);
    cur->sirq_ratio = measured(cur->softirq, prev->softirq);
}

void cpus_stats_parser::show_all_times(std::shared_ptr<cpu_stat> stat, std::ostream& os) {
    os << std::left << std::fixed << std::setprecision(2) << std::setw(6) << stat->cpu;
    for (double ratio :
         {stat->user_ratio, stat->sys_ratio, stat->iowait_ratio, stat->irq_ratio, stat->sirq_ratio})
        os << std::setw(6) << ratio << "%   ";
    os << std::setw(6) << stat->cpu_usage << "%";
}
