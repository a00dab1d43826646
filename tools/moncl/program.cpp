// From command line to exit status.
#include "program.h"

#include "command_line.h"
#include "library_output.h"
#ifdef MONCL_LIVE_SCREEN
#include "live_output.h"
#endif
#include "local_server.h"
#include "log_filter.h"
#include "server_source.h"
#include "session.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <initializer_list>
#include <optional>
#include <sstream>
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

bool wants_colour(const std::string& asked, bool terminal) {
    if (asked != "auto")
        return asked == "always";
    if (is_set("NO_COLOR"))
        return false;
    const char* forced = std::getenv("CLICOLOR_FORCE");
    return terminal || (is_set("CLICOLOR_FORCE") && std::string_view(forced) != "0");
}

output_options options_for(const invocation& called, int fd) {
    output_options options;
    const bool terminal = isatty(fd) == 1;
    winsize size{};
    if (terminal && ioctl(fd, TIOCGWINSZ, &size) == 0) {
        options.columns = size.ws_col;
        options.lines = size.ws_row;
    }
    options.time_column = called.time_column;
    options.colour = wants_colour(called.colour, terminal);
    options.sources = std::max<std::size_t>(called.servers.size(), 1);
    options.subjects = called.subjects.size();
    options.summary = called.summary;
    return options;
}

std::unique_ptr<output> make_output(const std::string& name, const output_options& options,
                                    writer& to) {
    for (const output_form& each : all_outputs())
        if (each.name == name)
            return each.make(options, to);
    throw std::logic_error("no form " + name);
}

std::string own_host_name() {
    char name[256] = "localhost";
    gethostname(name, sizeof name - 1);
    return name;
}

#ifdef MONCL_LIVE_SCREEN
// The signals that a terminal's owner handles, kept away from every thread started meanwhile.
class terminal_signals {
public:
    terminal_signals() {
        sigset_t kept;
        sigemptyset(&kept);
        for (const int number : {SIGWINCH, SIGTSTP, SIGCONT})
            sigaddset(&kept, number);
        pthread_sigmask(SIG_BLOCK, &kept, &before_);
    }
    ~terminal_signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    terminal_signals(const terminal_signals&) = delete;
    terminal_signals& operator=(const terminal_signals&) = delete;

private:
    sigset_t before_;
};
#endif

server_plan plan_for(const invocation& called, const output& shown) {
    server_plan plan;
    plan.subjects = called.subjects;
    plan.chosen = called.chosen;
    plan.when = called.when;
    plan.library_report = called.library_report;
    for (const subject* each : called.subjects)
        plan.compares = plan.compares || (shown.wants_rates() && each->has_rates());
    // There is something to learn of queries only if there are some.
    if (std::all_of(called.subjects.begin(), called.subjects.end(),
                    [](const subject* each) { return each->asks_nobody; }))
        for (const subject* each : all_subjects())
            if (!each->asks_nobody && !each->needs_pids)
                plan.unseen.push_back(each);
    return plan;
}

/// The servers to ask: those that were named, or one inside this program.
class asked_servers {
public:
    asked_servers(const invocation& called, std::ostream& err) {
        for (const endpoint& at : called.servers)
            all.emplace_back(at, at.text());
        if (!all.empty())
            return;
        inside_ = std::make_unique<local_server>(
            monsrv::server_options{called.root, called.simulate_board, called.seed});
        all.push_back({{"127.0.0.1", inside_->port()}, own_host_name()});
        if (called.simulate_board)
            err << "moncl: " << monsrv::simulation_notice << std::endl;
    }

    std::vector<std::unique_ptr<source>> sources(const server_plan& plan) const {
        std::vector<std::unique_ptr<source>> made;
        for (const auto& [at, host] : all)
            made.push_back(std::make_unique<server_source>(at, host, plan));
        return made;
    }

    std::vector<std::pair<endpoint, std::string>> all; ///< with what they are called

private:
    std::unique_ptr<local_server> inside_;
};

int run(const invocation& called, std::ostream& err) {
    // The next descriptor that is opened would take its number, and what is shown.
    if (fcntl(STDOUT_FILENO, F_GETFD) == -1)
        throw std::runtime_error(std::string("cannot write: ") + std::strerror(errno));
    stop_signal stop; // before any thread
    const library_output printed;
    const asked_servers servers(called, err);
    writer to(STDOUT_FILENO);
    const auto shown = make_output(called.form, options_for(called, STDOUT_FILENO), to);
    session_plan plan;
    plan.chosen = called.chosen;
    plan.named = !called.summary;
    plan.library_report = called.library_report;
    plan.averages = called.form == "table" && called.when.interval > 0 && !called.summary;
    session running(servers.sources(plan_for(called, *shown)), plan, *shown, to, err);
    return running.run(stop) ? exit_ok : exit_failed;
}

// Whether the live screen is what was asked for: nothing in particular, on a terminal.
bool wants_live_screen(const invocation& called) {
    return called.summary && called.form == "table" && called.when.count == 0 &&
           isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
}

/// @return nothing if the terminal is not fit for it
std::optional<int> run_live([[maybe_unused]] const invocation& called) {
#ifdef MONCL_LIVE_SCREEN
    stop_signal stop; // before any thread
    const library_output printed;
    std::optional<terminal_signals> kept(std::in_place);
    std::ostringstream messages;
    const asked_servers servers(called, messages);
    live::live_options options;
    for (const auto& each : servers.all)
        options.hosts.push_back(each.second);
    options.interval = called.when.interval > 0 ? called.when.interval : 1;
    options.colour = wants_colour(called.colour, true);
    const auto screen = live::open_live_screen(options, messages);
    if (!screen)
        return std::nullopt;
    server_plan plan;
    plan.subjects = live::live_subjects();
    plan.when.interval = options.interval;
    plan.first_interval = std::min(options.interval, 0.3);
    plan.compares = true;
    plan.sparing = true;
    writer nowhere(-1);
    session running(servers.sources(plan), {}, *screen, nowhere, messages);
    kept.reset();
    running.run(stop);
    return exit_ok;
#else
    return std::nullopt;
#endif
}
} // namespace

int run_program(std::vector<std::string> arguments, std::ostream& out, std::ostream& err) {
    // Characters are counted as the terminal shows them; figures keep their '.' decimals.
    if (std::setlocale(LC_CTYPE, "") == nullptr)
        std::setlocale(LC_CTYPE, "C.UTF-8");
    const invocation called = read_command_line(std::move(arguments), out, err);
    if (called.ends)
        return called.status;
    show_log = called.verbose;
    try {
        if (wants_live_screen(called))
            if (const auto status = run_live(called))
                return *status;
        return run(called, err);
    } catch (const std::exception& e) {
        err << "moncl: " << e.what() << "\n";
    }
    return exit_failed;
}

} // namespace tools
