// Running the live screen: its signals, its messages and its sources.
#include "live.h"

#include "library_output.h"
#include "live_output.h"
#include "program.h"

#include <algorithm>
#include <csignal>
#include <initializer_list>
#include <sstream>
#include <unistd.h>

namespace tools {

namespace {
// Blocks the signals that the terminal's owner handles in every thread started meanwhile.
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
} // namespace

bool wants_live_screen(const invocation& called) {
    return called.summary && called.form == "table" && called.when.count == 0 &&
           isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
}

std::optional<int> show_live(const invocation& called, const live_sources& open) {
    stop_signal stop; // before any thread
    const library_output printed;
    std::optional<terminal_signals> kept(std::in_place);
    std::ostringstream messages;
    live::live_options options;
    options.interval = called.when.interval > 0 ? called.when.interval : 1;
    options.colour = wants_colour(called.colour, true);
    options.replays = !called.from.empty();
    auto sources = open(options.interval, messages);
    for (const auto& each : sources)
        options.hosts.push_back(each->host());
    const auto screen = live::open_live_screen(options, messages);
    if (!screen)
        return std::nullopt;
    writer nowhere(-1);
    session running(std::move(sources), {}, *screen, nowhere, messages);
    kept.reset();
    running.run(stop);
    return exit_ok;
}

std::optional<int> show_live_servers(const invocation& called) {
    server_set servers;
    return show_live(called, [&](double interval, std::ostream& messages) {
        server_plan plan;
        plan.subjects = live::live_subjects();
        plan.when.interval = interval;
        plan.first_interval = std::min(interval, 0.3);
        plan.compares = true;
        plan.sparing = true;
        servers = open_servers(called, messages);
        return make_sources(servers, plan);
    });
}

} // namespace tools
