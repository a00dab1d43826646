// Frequencies of the CPUs.
#include "board.h"
#include "subject.h"

#include <algorithm>

namespace tools {
namespace {

constexpr std::uint64_t hertz_in_khz = 1000;

bool is_chosen(const selection& chosen, const std::string& cpu) {
    return chosen.cpus.empty() || chosen.every_cpu ||
           std::find(chosen.cpus.begin(), chosen.cpus.end(), cpu) != chosen.cpus.end();
}

// An answer without a number decodes as 0, which is no frequency of a CPU.
value to_hertz(std::uint64_t khz) {
    std::uint64_t hertz = 0;
    if (khz == 0 || __builtin_mul_overflow(khz, hertz_in_khz, &hertz))
        return unknown;
    return hertz;
}

int ask(board& server, const selection& chosen, sample& into) {
    const int cpus =
        server.lately("possible_cpus", [&server] { return server.system.get_cpu_possible(); });
    if (cpus < 0)
        return cpus;
    bool any = false;
    for (int cpu = 0; cpu < std::min(cpus, system_request::cpu_frequency_count); ++cpu) {
        const std::string name = std::to_string(cpu);
        if (!is_chosen(chosen, name))
            continue;
        const int code = server.system.get_cpu_freq(cpu);
        if (code < 0 && !server.is_servers_own(code))
            return code;
        const value hertz = code < 0 ? value() : to_hertz(server.system.freq->cpu_f->cpu_frequency);
        any = any || is_known(hertz);
        into.add(name, hertz);
    }
    miss_cpus("freq", chosen, into);
    if (cpus > system_request::cpu_frequency_count)
        into.notes.push_back("a server is asked for the frequencies of CPU 0 to 7 only, and has " +
                             std::to_string(cpus) + " CPUs");
    if (!any && !into.rows.empty())
        into.faults.emplace_back("the server knows no frequency of a CPU: does its kernel have "
                                 "cpufreq?");
    return 0;
}

const subject_registration registered([] {
    subject freq{"freq",
                 "cpu",
                 "Frequencies of CPU 0 to 7",
                 {label("cpu", "CPU", "Number of the CPU"),
                  gauge("frequency_hertz", unit::hertz, "Frequency when the server was asked")
                      .column("MHz")},
                 [](const selection& chosen) -> asker {
                     return [chosen](board& server, sample& into) {
                         return ask(server, chosen, into);
                     };
                 }};
    freq.place = 12;
    return freq;
}());

} // namespace
} // namespace tools
