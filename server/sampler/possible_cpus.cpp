// The possible CPUs, as the range "0-N".
#include "sampler.h"

#include <cerrno>
#include <sstream>

namespace monsrv {
namespace {

// The kernel's list may have gaps, or hold a single CPU; clients count from a range alone.
int count_cpus(const std::string& list) {
    int count = 0;
    std::istringstream ranges(list);
    for (std::string range; std::getline(ranges, range, ',');) {
        int first = 0;
        std::istringstream bounds(range);
        if (!(bounds >> first))
            return 0;
        int last = first;
        if (bounds.peek() == '-')
            bounds.ignore() >> last;
        count += last - first + 1;
    }
    return count;
}

int sample(const host& env, reply& answer) {
    std::string list;
    if (const int error = env.read_again("/sys/devices/system/cpu/possible", list); error < 0)
        return error;
    const int count = count_cpus(list);
    if (count < 1)
        return -EIO;
    answer.add_lines("0-" + std::to_string(count - 1) + "\n");
    return 0;
}

void install(sampler_table& table, const host& env) {
    table.on(0xAE01, 9, [&env](const request&, reply& answer) { return sample(env, answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
