// The list of commands.
#include "command.h"

#include <algorithm>

namespace tools {

namespace {
std::vector<command>& registered() {
    static std::vector<command> all;
    return all;
}
} // namespace

std::vector<command> all_commands() {
    std::vector<command> all = registered();
    std::sort(all.begin(), all.end(),
              [](const command& a, const command& b) { return a.name < b.name; });
    return all;
}

command_registration::command_registration(const char* name, const char* summary,
                                           command_action (*configure)(CLI::App& app)) {
    registered().push_back({name, summary, configure});
}

} // namespace tools
