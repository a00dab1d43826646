// Reading the command line.
#include "command_line.h"

#include <CLI/CLI.hpp>

namespace tools {

namespace {
// What runs where no command is named.
constexpr const char* default_command = "summary";

// HOST:PORT, the port after the last colon. An IPv6 address has colons of its own, hence brackets.
std::string read_endpoint(const std::string& text, source& from) {
    const std::size_t colon = text.rfind(':');
    if (colon == text.npos || colon == 0)
        return "needs HOST:PORT";
    const std::string host = text.substr(0, colon);
    const bool in_brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (!in_brackets && host.find_first_of("[]:") != host.npos)
        return "needs an IPv6 address in brackets, as [ADDRESS]:PORT";
    int port = 0;
    if (!CLI::detail::lexical_cast(text.substr(colon + 1), port) || port < 1 || port > 65535)
        return "needs a port from 1 to 65535 behind the colon";
    from.host = host;
    from.port = port;
    return {};
}

void add_source(CLI::App& app, source& from) {
    auto* connect =
        app.add_option("--connect", "Ask the server at HOST:PORT; without this a server "
                                    "is started inside the program");
    connect->type_name("HOST:PORT")->each([&from](const std::string& text) {
        if (const std::string fault = read_endpoint(text, from); !fault.empty())
            throw CLI::ValidationError(fault);
    });
    app.add_option("--root", from.root, "Folder the server inside reads in place of /")
        ->check(CLI::ExistingDirectory)
        ->excludes(connect);
    auto* simulate =
        app.add_flag("--simulate-board", from.simulate_board,
                     "Let the server inside make up the figures of hardware that this host lacks");
    simulate->excludes(connect);
    app.add_option("--seed", from.seed, "What the simulated figures follow from")
        ->needs(simulate)
        ->check(CLI::Range(0L, 4294967295L));
    app.add_flag("--verbose", from.verbose, "Show the library's log on standard error");
}
} // namespace

std::shared_ptr<schedule> add_schedule(CLI::App& app, schedule_form form) {
    const bool anyhow = form == schedule_form::anyhow;
    auto when = std::make_shared<schedule>();
    // Below a millisecond, and beyond a day, an interval is a slip of the finger. Not a CLI::Range:
    // that lets "nan" pass.
    const CLI::Validator seconds(
        [](const std::string& text) {
            double value = 0;
            const bool fits =
                CLI::detail::lexical_cast(text, value) && value >= 0.001 && value <= 86400;
            return fits ? std::string() : "needs 0.001 to 86400 seconds";
        },
        "");
    const CLI::Range reports(1L, 1000000000L);
    auto* interval =
        app.add_option(anyhow ? "INTERVAL,-i,--interval" : "-i,--interval", when->interval,
                       "Seconds between reports, fractions allowed; without COUNT "
                       "until stopped");
    interval->check(seconds)->option_text("SECONDS");
    app.add_option(anyhow ? "COUNT,-n,--count" : "-n,--count", when->count, "Number of reports")
        ->check(reports)
        ->option_text("N");
    return when;
}

invocation read_command_line(std::vector<std::string> arguments, std::ostream& out,
                             std::ostream& err) {
    invocation result;
    CLI::App app("Asks a monitoring server and prints what it says.", "moncl");
    app.set_version_flag("--version", "moncl " MONCL_VERSION);
    app.fallthrough();
    app.require_subcommand(0, 1);
    add_source(app, result.from);
    for (const command& each : all_commands()) {
        CLI::App* sub = app.add_subcommand(each.name, each.summary);
        command_action action = each.configure(*sub);
        sub->callback([action, &result] { result.action = action; });
        if (each.name == default_command)
            result.action = action;
    }
    try {
        std::reverse(arguments.begin(), arguments.end());
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& e) {
        result.action = nullptr;
        result.status = app.exit(e, out, err) == 0 ? exit_ok : exit_usage;
    }
    return result;
}

} // namespace tools
