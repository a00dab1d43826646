// moncl sysinfo: version, possible CPUs and their frequencies.
#include "sys_info_manager.h"

#include "session.h"

#include <iomanip>

namespace tools {
namespace {

constexpr int (sysinfo_manager::*frequency_queries[])() = {
    &sysinfo_manager::get_cpu0_freq, &sysinfo_manager::get_cpu1_freq,
    &sysinfo_manager::get_cpu2_freq, &sysinfo_manager::get_cpu3_freq,
    &sysinfo_manager::get_cpu4_freq, &sysinfo_manager::get_cpu5_freq,
    &sysinfo_manager::get_cpu6_freq, &sysinfo_manager::get_cpu7_freq,
};

// A CPU without a known frequency is no reason to withhold the rest.
int report(sysinfo_manager& manager, std::ostream& out) {
    if (const int code = manager.get_version(); code < 0)
        return code;
    const int cpus = manager.get_cpu_possible(nullptr);
    if (cpus < 0)
        return cpus;
    out << std::left << std::setw(10) << "version" << manager.last_version() << "\n"
        << std::setw(10) << "cpus" << cpus << "\n";
    for (int cpu = 0; cpu < cpus && cpu < 8; ++cpu) {
        const auto query = frequency_queries[cpu];
        out << "cpu" << std::setw(7) << cpu;
        if ((manager.*query)() < 0)
            out << "-\n";
        else
            out << std::fixed << std::setprecision(3)
                << static_cast<double>(manager.last_cpu_freq()) / 1000 << " MHz\n";
    }
    return 0;
}

command_action configure(CLI::App&) {
    return [](session& asking) {
        sysinfo_manager manager(asking.new_connection());
        return asking.repeat(
            {}, {[&](std::ostream* out) { return report(manager, *out); }, {manager.client}});
    };
}

const command_registration registered("sysinfo", "System version, CPUs and their frequencies",
                                      configure);

} // namespace
} // namespace tools
