// The possible CPUs, as the range "0-N".
#include "cpu_list.h"
#include "sampler.h"

#include <cerrno>

namespace monsrv {
namespace {

int sample(const host& env, reply& answer) {
    std::string list;
    if (const int error = env.read_again("/sys/devices/system/cpu/possible", list); error < 0)
        return error;
    // The kernel's list may have gaps, or hold a single CPU; clients count from a range alone.
    const std::size_t count = read_cpu_list(list).size();
    if (count < 1)
        return -EIO;
    answer.add_lines("0-" + std::to_string(count - 1) + "\n");
    return 0;
}

void install(sampler_table& table, const host& env) {
    table.on(system_command, system_request::possible_cpus,
             [&env](const request&, reply& answer) { return sample(env, answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
