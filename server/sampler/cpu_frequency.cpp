// The current frequency of one CPU, in kHz.
#include "sampler.h"

#include <cerrno>
#include <cmath>
#include <sstream>

namespace monsrv {
namespace {

// The "cpu MHz" of a processor's block in /proc/cpuinfo, which x86 kernels have without cpufreq.
double cpuinfo_mhz(const std::string& cpuinfo, int cpu) {
    std::istringstream lines(cpuinfo);
    int block = -1;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(':');
        if (colon == line.npos)
            continue;
        std::istringstream value(line.substr(colon + 1));
        double mhz = 0;
        if (line.rfind("processor", 0) == 0)
            value >> block;
        else if (block == cpu && line.rfind("cpu MHz", 0) == 0 && value >> mhz)
            return mhz;
    }
    return 0;
}

int sample(const host& env, int cpu, reply& answer) {
    const std::string name = "/sys/devices/system/cpu/cpu" + std::to_string(cpu);
    std::string text;
    if (env.read(name + "/cpufreq/scaling_cur_freq", text) == 0) {
        answer.add_lines(text);
        return 0;
    }
    std::string cpuinfo;
    env.read_again("/proc/cpuinfo", cpuinfo);
    const double mhz = cpuinfo_mhz(cpuinfo, cpu);
    if (mhz <= 0)
        return -ENOENT;
    answer.add_lines(std::to_string(std::llround(mhz * 1000)) + "\n");
    return 0;
}

void install(sampler_table& table, const host& env) {
    for (int cpu = 0; cpu < system_request::cpu_frequency_count; ++cpu)
        table.on(system_command, system_request::cpu_frequency + cpu,
                 [&env, cpu](const request&, reply& answer) { return sample(env, cpu, answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
