// From command line to exit status.
#include "program.h"

#include "library_output.h"
#ifdef MONCL_LIVE_SCREEN
#include "live.h"
#endif
#include "log_filter.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tools {

bool show_log = false;

namespace {
bool is_set(const char* variable) {
    const char* text = std::getenv(variable);
    return text != nullptr && *text != '\0';
}

} // namespace

bool wants_colour(const std::string& asked, bool terminal) {
    if (asked != "auto")
        return asked == "always";
    if (is_set("NO_COLOR"))
        return false;
    const char* forced = std::getenv("CLICOLOR_FORCE");
    return terminal || (is_set("CLICOLOR_FORCE") && std::string_view(forced) != "0");
}

namespace {
output_options options_for(const invocation& called, int fd, std::size_t sources) {
    output_options options;
    const bool terminal = isatty(fd) == 1;
    winsize size{};
    if (terminal && ioctl(fd, TIOCGWINSZ, &size) == 0) {
        options.columns = size.ws_col;
        options.lines = size.ws_row;
    }
    options.time_column = called.time_column || !called.from.empty();
    options.colour = wants_colour(called.colour, terminal);
    options.sources = std::max<std::size_t>(sources, 1);
    options.subjects = called.subjects.size();
    options.summary = called.summary;
    return options;
}

std::string own_host_name() {
    char name[256] = "localhost";
    gethostname(name, sizeof name - 1);
    return name;
}

server_plan plan_for(const invocation& called, const output& shown) {
    server_plan plan;
    plan.subjects = called.subjects;
    plan.chosen = called.chosen;
    plan.when = called.when;
    plan.library_report = called.library_report;
    plan.compares = compares(called.subjects, shown);
    // Subjects about queries alone have nothing to show, so the other subjects are asked as well.
    if (std::all_of(called.subjects.begin(), called.subjects.end(),
                    [](const subject* each) { return each->asks_nobody; }))
        for (const subject* each : all_subjects())
            if (!each->asks_nobody && !each->needs_pids)
                plan.unseen.push_back(each);
    return plan;
}

int show_subjects(const invocation& called, std::ostream& err) {
    // If standard output is closed, the next descriptor opened gets its number and would receive
    // the text.
    if (fcntl(STDOUT_FILENO, F_GETFD) == -1)
        throw std::runtime_error(std::string("cannot write: ") + std::strerror(errno));
    stop_signal stop; // before any thread
    const library_output printed;
    writer to(STDOUT_FILENO);
    const auto shown = make_output(called, called.servers.size(), to);
    server_set servers = make_server_sources(called, *shown, err);
    session running(std::move(servers.sources), plan_of_session(called), *shown, to, err);
    return running.run(stop) ? exit_ok : exit_failed;
}

int run(const invocation& called, std::ostream& err) {
    if (called.does != nullptr)
        return called.does->run(called, err);
#ifdef MONCL_LIVE_SCREEN
    if (called.from.empty() && wants_live_screen(called))
        if (const auto status = show_live_servers(called))
            return *status;
#endif
    if (called.from.empty())
        return show_subjects(called, err);
    const command* replay = find_command("");
    if (replay == nullptr)
        throw std::runtime_error("this moncl was built without recordings");
    return replay->run(called, err);
}
} // namespace

bool compares(const std::vector<const subject*>& subjects, const output& shown) {
    return shown.wants_rates() &&
           std::any_of(subjects.begin(), subjects.end(),
                       [](const subject* each) { return each->has_rates(); });
}

std::unique_ptr<output> make_output(const invocation& called, std::size_t sources, writer& to) {
    for (const output_form& each : all_outputs())
        if (each.name == called.form)
            return each.make(options_for(called, STDOUT_FILENO, sources), to);
    throw std::logic_error("no form " + called.form);
}

server_set open_servers(const invocation& called, std::ostream& err) {
    server_set made;
    for (const endpoint& at : called.servers)
        made.servers.emplace_back(at, at.text());
    if (!made.servers.empty())
        return made;
    made.inside = std::make_unique<local_server>(
        monsrv::server_options{called.root, called.simulate_board, called.seed});
    made.servers.push_back({{"127.0.0.1", made.inside->port()}, own_host_name()});
    if (called.simulate_board)
        err << "moncl: " << monsrv::simulation_notice << std::endl;
    return made;
}

std::vector<std::unique_ptr<source>> make_sources(const server_set& servers,
                                                  const server_plan& plan) {
    std::vector<std::unique_ptr<source>> made;
    for (const auto& [at, host] : servers.servers)
        made.push_back(std::make_unique<server_source>(at, host, plan));
    return made;
}

server_set make_server_sources(const invocation& called, const output& shown, std::ostream& err) {
    server_set made = open_servers(called, err);
    made.sources = make_sources(made, plan_for(called, shown));
    return made;
}

session_plan plan_of_session(const invocation& called) {
    session_plan plan;
    plan.chosen = called.chosen;
    plan.named = !called.summary;
    plan.library_report = called.library_report;
    const bool several = called.when.interval > 0 || !called.from.empty();
    plan.averages = called.form == "table" && several && !called.summary;
    return plan;
}

int run_program(std::vector<std::string> arguments, std::ostream& out, std::ostream& err) {
    // Only LC_CTYPE is set: the width of characters follows the terminal, and decimals keep their
    // '.'.
    if (std::setlocale(LC_CTYPE, "") == nullptr)
        std::setlocale(LC_CTYPE, "C.UTF-8");
    const invocation called = read_command_line(std::move(arguments), out, err);
    if (called.ends)
        return called.status;
    show_log = called.verbose;
    try {
        return run(called, err);
    } catch (const std::exception& e) {
        err << "moncl: " << e.what() << "\n";
    }
    return exit_failed;
}

} // namespace tools
