// The interrupt table: /proc/interrupts, whole.
#include "sampler.h"

namespace monsrv {
namespace {

int sample(const host& env, reply& answer) {
    std::string text;
    if (const int error = env.read_again("/proc/interrupts", text); error < 0)
        return error;
    answer.allow_parts();
    answer.add_lines(text);
    return 0;
}

void install(sampler_table& table, const host& env) {
    table.on(cpu_command, cpu_request::interrupts,
             [&env](const request&, reply& answer) { return sample(env, answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
