// Memory of the machine: the text of /proc/meminfo.
#include "sampler.h"

#include <charconv>

namespace monsrv {
namespace {

// A line that is not "key: number" would make a client drop all of the text.
bool has_figure(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == line.npos)
        return false;
    const std::size_t start = line.find_first_not_of(" \t", colon + 1);
    if (start == line.npos)
        return false;
    long figure = 0;
    return std::from_chars(line.data() + start, line.data() + line.size(), figure).ec ==
           std::errc();
}

int sample(const host& env, reply& answer) {
    std::string text;
    if (const int error = env.read_again("/proc/meminfo", text); error < 0)
        return error;
    std::string_view rest = text;
    std::string figures;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        if (has_figure(line))
            figures.append(line).push_back('\n');
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    answer.add_lines(figures);
    return 0;
}

void install(sampler_table& table, const host& env) {
    table.on(
        peripheral_command, peripheral_request::memory,
        shared_briefly(env, [&env](const request&, reply& answer) { return sample(env, answer); }));
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
