// moncl part: space of file systems.
#include "peripherals.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <set>
#include <sstream>

namespace tools {
namespace {

// Bytes of names, each with a blank behind it, that fit into a request.
constexpr std::size_t names_room = request_payload_max - 2;
// What an answer can tell of a name.
constexpr std::size_t shown_length = sizeof(part_info::part_name) - 1;

// The request parts names by blanks; the server reads those of a name as the kernel writes them.
std::string escape_blanks(const std::string& name) {
    std::string escaped;
    for (const char c : name)
        escaped += c == ' ' ? "\\040" : std::string(1, c);
    return escaped;
}

// Takes what may be any number of names, and refuses those that the request would drop unsaid.
std::string check_names(const std::vector<std::string>& names) {
    std::size_t needed = 0;
    for (const std::string& name : names)
        needed += escape_blanks(name).size() + 1;
    return needed <= names_room ? "" : "too many or too long for one request";
}

/// Asks for the named file systems and says once of each that the server does not know it.
class asker {
public:
    asker(std::vector<std::string> names, session& asking)
        : asking_(asking), names_(std::move(names)) {
        for (const std::string& name : names_)
            escaped_.push_back(escape_blanks(name));
        for (const std::string& name : escaped_)
            request_.push_back(name.c_str());
    }

    int run(const schedule& when) {
        const int status = repeat_query(
            asking_, when, [this](auto& manager, auto* out) { return report(manager, out); });
        return status == exit_ok && !unknown_.empty() ? exit_failed : status;
    }

private:
    int report(peri_stat_manager& manager, std::ostream* out) {
        std::ostringstream text; // written behind the complaints, not around them
        const int code = manager.get_partition_info(request_, &text);
        if (code < 0)
            return code;
        const auto& parts = manager.part_parser->part_vec;
        for (const std::string& name : names_) {
            const bool known =
                std::any_of(parts.begin(), parts.end(), [&name](const part_info& part) {
                    return field_text(part.part_name).substr(0, shown_length) ==
                           name.substr(0, shown_length);
                });
            if (!known && unknown_.insert(name).second)
                asking_.err() << "moncl: the server has no figures of a file system " << name
                              << std::endl;
        }
        *out << text.str();
        return code;
    }

    session& asking_;
    std::vector<std::string> names_;
    std::vector<std::string> escaped_;
    std::vector<const char*> request_; // into `escaped_`
    std::set<std::string> unknown_;
};

command_action configure(CLI::App& app) {
    auto names = std::make_shared<std::vector<std::string>>();
    app.add_option("NAME", *names,
                   "Devices, such as vda1, or mount points; without any, all block devices");
    app.parse_complete_callback([names] {
        if (const std::string fault = check_names(*names); !fault.empty())
            throw CLI::ValidationError("NAME", fault);
    });
    return [names, when = add_schedule(app, schedule_form::options_only)](session& asking) {
        return asker(*names, asking).run(*when);
    };
}

const command_registration registered("part", "Space of file systems", configure);

} // namespace
} // namespace tools
