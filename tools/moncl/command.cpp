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

const std::vector<command>& all_commands() {
    return registered();
}

const command* find_command(std::string_view name) {
    for (const command& each : registered())
        if (each.name == name)
            return &each;
    return nullptr;
}

command_registration::command_registration(command one) {
    std::vector<command>& all = registered();
    const auto place = std::find_if(all.begin(), all.end(), [&](const command& each) {
        return std::string_view(one.name) < each.name;
    });
    all.insert(place, std::move(one));
}

} // namespace tools
