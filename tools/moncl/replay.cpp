// What was recorded, shown or exported: --from and moncl export.
#include "library_output.h"
#ifdef MONCL_LIVE_SCREEN
#include "live.h"
#include "live_output.h"
#endif
#include "metrics_export.h"
#include "program.h"
#include "recording_source.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace tools {
namespace {

/// Part of an export that is done, on standard error if that is a terminal.
class progress_bar {
public:
    explicit progress_bar(bool wanted) : shown_(wanted && isatty(STDERR_FILENO) == 1) {}
    ~progress_bar() {
        if (percent_ >= 0)
            write_bar("\r\033[K");
    }
    progress_bar(const progress_bar&) = delete;
    progress_bar& operator=(const progress_bar&) = delete;

    void show(double part) {
        const int percent = static_cast<int>(std::floor(part * 100));
        if (!shown_ || percent == percent_)
            return;
        percent_ = percent;
        constexpr int width = 40;
        const auto filled = static_cast<std::size_t>(width * percent / 100);
        write_bar("\r[" + std::string(filled, '#') + std::string(width - filled, ' ') + "] " +
                  std::to_string(percent) + " %");
    }

private:
    static void write_bar(const std::string& text) {
        if (write(STDERR_FILENO, text.data(), text.size()) < 0)
            return; // the bar is no loss
    }
    bool shown_;
    int percent_ = -1;
};

/// An output that shows how far its source has come.
class watched_output : public output {
public:
    watched_output(output& real, progress_bar& bar) : real_(real), bar_(bar) {}

    bool wants_rates() const override { return real_.wants_rates(); }
    void show(const shown_sample& each) override { real_.show(each); }
    void end_report(const std::string& host, long number, bool away) override {
        real_.end_report(host, number, away);
        double least = 1;
        for (const recording_source* each : sources)
            least = std::min(least, each->progress());
        bar_.show(least);
    }
    void average(const shown_sample& mean, std::size_t samples) override {
        real_.average(mean, samples);
    }
    void finish() override { real_.finish(); }

    std::vector<const recording_source*> sources;

private:
    output& real_;
    progress_bar& bar_;
};

replay_plan plan_for(const invocation& called) {
    replay_plan plan;
    plan.subjects = called.subjects;
    plan.chosen = called.chosen;
    plan.when = called.when;
    plan.since = called.since;
    plan.until = called.until;
    return plan;
}

std::vector<std::string> hosts_of(const invocation& called) {
    std::vector<std::string> hosts = recorded_hosts(called.from);
    if (!called.host.empty())
        hosts = {called.host};
    // A host without reports in that time must not hide the others.
    std::vector<std::string> present;
    std::string fault = called.from + " has no reports";
    for (const std::string& host : hosts) {
        const recording_reader from(called.from, host);
        try {
            find_range(from, called.since, called.until);
            present.push_back(host);
        } catch (const std::runtime_error& e) {
            fault = e.what();
        }
    }
    if (present.empty())
        throw std::runtime_error(fault);
    return present;
}

int export_metrics(const invocation& called, const std::vector<std::string>& hosts,
                   stop_signal& stop, progress_bar& bar, std::ostream& err) {
    writer to(STDOUT_FILENO);
    metrics_export metrics(called.from, hosts, plan_for(called), to);
    bool stopped = false;
    metrics.run([&](double part) {
        bar.show(part);
        stopped = stop.is_set();
        return !stopped;
    });
    if (to.error() != 0)
        throw std::runtime_error("cannot write: " + std::string(std::strerror(to.error())));
    if (metrics.left_out() > 0)
        err << "moncl: reports left out, for the clock had been set back: " << metrics.left_out()
            << std::endl;
    return stopped ? exit_failed : exit_ok;
}

int run_replay(const invocation& called, bool named, bool shows_progress, std::ostream& err) {
    const std::vector<std::string> hosts = hosts_of(called);
    stop_signal stop; // before any thread
    progress_bar bar(shows_progress);
    if (called.form == "openmetrics")
        return export_metrics(called, hosts, stop, bar, err);
    writer to(STDOUT_FILENO);
    const auto shown = make_output(called, hosts.size(), to);
    watched_output watched(*shown, bar);
    replay_plan plan = plan_for(called);
    plan.compares = compares(plan.subjects, *shown);
    const auto order = std::make_shared<replay_order>();
    std::vector<std::unique_ptr<source>> sources;
    for (const std::string& host : hosts) {
        auto made = std::make_unique<recording_source>(called.from, host, plan, order);
        watched.sources.push_back(made.get());
        sources.push_back(std::move(made));
    }
    session_plan how = plan_of_session(called);
    how.named = named;
    session running(std::move(sources), how, watched, to, err);
    return running.run(stop) ? exit_ok : exit_failed;
}

#ifdef MONCL_LIVE_SCREEN
std::optional<int> show_live_recording(const invocation& called) {
    const std::vector<std::string> hosts = hosts_of(called);
    return show_live(called, [&](double interval, std::ostream&) {
        replay_plan plan = plan_for(called);
        plan.subjects = live::live_subjects();
        plan.when = {};
        plan.compares = true;
        plan.stands_still = true;
        std::vector<std::unique_ptr<source>> sources;
        for (const std::string& host : hosts) {
            sources.push_back(std::make_unique<recording_source>(called.from, host, plan));
            sources.back()->set_interval(interval);
        }
        return sources;
    });
}
#endif

int run_from(const invocation& called, std::ostream& err) {
#ifdef MONCL_LIVE_SCREEN
    if (wants_live_screen(called))
        if (const auto status = show_live_recording(called))
            return *status;
#endif
    return run_replay(called, !called.summary, false, err);
}

int run_export(const invocation& asked, std::ostream& err) {
    invocation called = asked;
    if (called.form == "table")
        called.form = "json";
    if (called.subjects.empty())
        called.subjects = recording_reader(called.from, hosts_of(called).front()).subjects();
    if (called.subjects.empty())
        throw std::runtime_error(called.from + " has no figures");
    return run_replay(called, !asked.subjects.empty(), true, err);
}

const command_registration from({"", "", "", 0, {}, false, run_from});
const command_registration export_all(
    {"export",
     "FILE [SUBJECT[,SUBJECT...]] [NAME...] [INTERVAL] [--format json|csv|openmetrics] [OPTION...]",
     "Writes what was recorded in FILE in one of the forms for machines",
     1,
     {},
     true,
     run_export});

} // namespace
} // namespace tools
