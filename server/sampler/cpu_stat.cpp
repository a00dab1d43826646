// The CPU-time table: the "cpu" lines of /proc/stat.
#include "sampler.h"

namespace monsrv {
namespace {

int sample(const host& env, reply& answer) {
    std::string text;
    if (const int error = env.read_again("/proc/stat", text); error < 0)
        return error;
    // The "cpu" lines come first. On machines with many interrupts the lines after them would not
    // fit into the frame.
    std::size_t end = 0;
    while (text.compare(end, 3, "cpu") == 0) {
        const std::size_t line_end = text.find('\n', end);
        end = line_end == text.npos ? text.size() : line_end + 1;
    }
    answer.add_lines(std::string_view(text).substr(0, end));
    return 0;
}

void install(sampler_table& table, const host& env) {
    table.on(
        cpu_command, cpu_request::usage,
        shared_briefly(env, [&env](const request&, reply& answer) { return sample(env, answer); }));
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
