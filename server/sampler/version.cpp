// The system version: the kernel's release.
#include "sampler.h"

namespace monsrv {
namespace {

int sample(const host& env, reply& answer) {
    std::string text;
    const int error = env.read_again("/proc/sys/kernel/osrelease", text);
    answer.add_lines(text);
    return error;
}

void install(sampler_table& table, const host& env) {
    table.on(system_command, system_request::version,
             [&env](const request&, reply& answer) { return sample(env, answer); });
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
