// A night of a simulated board, recorded by a clock that runs fast: 8 hours at 1 s, by a program
// that is killed three times on the way. Checks what is read against what was recorded.
// Usage: moncl_night FILE [SECONDS]
#include "library_output.h"
#include "local_server.h"
#include "recording.h"
#include "recording_reader.h"
#include "server_source.h"
#include "session.h"
#include "sqlite.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
using namespace tools;

constexpr int kills = 3;
constexpr int seconds_of_night = 8 * 3600;
constexpr int dark_seconds = 60; // without a recorder, after each kill
const std::chrono::system_clock::time_point evening{std::chrono::seconds(1800000000)};

/// A server whose reports are a second apart by a clock of their own, and not in truth.
class fast_source : public server_source {
public:
    fast_source(int port, server_plan plan, std::shared_ptr<long> second)
        : server_source({"127.0.0.1", port}, "board", std::move(plan)), second_(std::move(second)) {
    }
    bool next(report& into) override {
        ++*second_;
        return server_source::next(into);
    }

private:
    std::shared_ptr<long> second_;
};

// Records the seconds from `first` on, up to the end of the night.
int record(const std::string& path, int first, int end) {
    stop_signal stop;
    const library_output printed;
    const local_server board(monsrv::server_options{"/", true, 1});
    const auto second = std::make_shared<long>(first - 1);
    server_plan plan;
    for (const subject* each : all_subjects())
        if (!each->asks_nobody && !each->needs_pids)
            plan.subjects.push_back(each);
    plan.chosen.rows = 20;
    plan.when = {0.001, end - first};
    plan.clock = [second] {
        return moment{evening + std::chrono::seconds(*second), static_cast<double>(*second)};
    };
    recording to_file(path, {}, std::cerr);
    writer nowhere(-1);
    std::vector<std::unique_ptr<source>> sources;
    sources.push_back(std::make_unique<fast_source>(board.port(), std::move(plan), second));
    return session(std::move(sources), {}, to_file, nowhere, std::cerr).run(stop) ? 0 : 1;
}

// The last second that the file has; 0 if it has none.
int recorded_until(const std::string& path) {
    try {
        const auto last = recording_reader(path, "board").last();
        return last ? static_cast<int>((last->time - evening) / std::chrono::seconds(1)) : 0;
    } catch (const std::runtime_error&) { // not made yet
        return 0;
    }
}

// Lets a program record until the file has come to `until`, and kills it.
int run_and_kill(const std::string& path, int first, int until, int end) {
    const pid_t child = fork();
    if (child == 0)
        _exit(record(path, first, end));
    while (until < end && recorded_until(path) < until)
        usleep(100000);
    if (until < end)
        kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return until < end || status == 0 ? recorded_until(path) : -1;
}
} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "Usage: moncl_night FILE [SECONDS]\n";
        return 2;
    }
    const std::string path = argv[1];
    const int end = argc > 2 ? std::atoi(argv[2]) : seconds_of_night;
    int first = 1;
    for (int run = 1; run <= kills + 1; ++run) {
        const int until = run_and_kill(path, first, run * end / (kills + 1), end);
        if (until < first) {
            std::cerr << "run " << run << " recorded nothing\n";
            return 1;
        }
        std::cout << "run " << run << ": seconds " << first << " to " << until
                  << (run <= kills ? ", killed" : "") << std::endl;
        first = until + dark_seconds;
    }
    rusage used{};
    getrusage(RUSAGE_CHILDREN, &used);
    const auto file = open_recording(path);
    statement sound(*file, "PRAGMA integrity_check");
    sound.step();
    std::cout << "integrity: " << sound.text(0)
              << "\nticks: " << file->integer("SELECT count(*) FROM ticks") << "\nbytes a tick: "
              << file->integer("PRAGMA page_count") * file->integer("PRAGMA page_size") /
                     file->integer("SELECT count(*) FROM ticks")
              << "\nCPU seconds of all runs, servers included: "
              << used.ru_utime.tv_sec + used.ru_stime.tv_sec << std::endl;
    return sound.text(0) == "ok" ? 0 : 1;
}
