// A run of the console program inside the test: sessions over servers at loopback ports, by a clock
// that advances by a second at each report.
#ifndef MONCL_TESTS_CONSOLE_RUN_H
#define MONCL_TESTS_CONSOLE_RUN_H

#include "library_output.h"
#include "output.h"
#include "server_source.h"
#include "session.h"

#include <sstream>

/// What is asked of which servers, and what that gave.
struct console_run {
    console_run(std::vector<int> asked, std::vector<const char*> about, std::string as = "table")
        : ports(std::move(asked)), subjects(std::move(about)), form(std::move(as)) {}
    void run();

    std::vector<int> ports;
    std::vector<const char*> subjects;
    std::string form;
    long reports = 1; ///< after the one to compare with, if rates are shown
    double step = 1;  ///< of the clock, in seconds
    tools::selection chosen;
    tools::output_options options;     ///< the terminal
    tools::output* shown_by = nullptr; ///< instead of a form
    bool named = true;
    bool averages = false;
    std::size_t rows_max = 1000; ///< of more rows, equally spaced ones up to the last are kept

    std::string out;
    std::string err;
    bool well = false;
};

/// Advances the clock before each report.
class clocked_source : public tools::server_source {
public:
    clocked_source(const console_run& how, int port, tools::server_plan plan,
                   std::shared_ptr<double> now)
        : server_source({"127.0.0.1", port}, "127.0.0.1:" + std::to_string(port), std::move(plan)),
          now_(std::move(now)), step_(how.step), rows_max_(how.rows_max) {}

    bool next(tools::report& into) override {
        *now_ += step_;
        const bool more = server_source::next(into);
        for (tools::answer& each : into.answers) {
            auto& rows = each.figures.rows;
            for (std::size_t i = 0; rows.size() > rows_max_ && i < rows_max_; ++i)
                rows[i] = rows[(i + 1) * rows.size() / rows_max_ - 1];
            if (rows.size() > rows_max_)
                rows.resize(rows_max_);
        }
        return more;
    }

private:
    std::shared_ptr<double> now_;
    double step_;
    std::size_t rows_max_;
};

inline void console_run::run() {
    using namespace tools;
    const library_output printed;
    stop_signal stop;
    writer to(-1);
    options.sources = ports.size();
    options.summary = !named;
    std::unique_ptr<output> made;
    for (const output_form& each : all_outputs())
        if (form == each.name)
            made = each.make(options, to);
    output& shown = shown_by != nullptr ? *shown_by : *made;
    std::vector<std::unique_ptr<source>> sources;
    for (const int port : ports) {
        auto now = std::make_shared<double>(0);
        server_plan plan;
        for (const char* name : subjects) {
            plan.subjects.push_back(find_subject(name));
            plan.compares |= shown.wants_rates() && plan.subjects.back()->has_rates();
        }
        plan.unseen = {find_subject("mem"), find_subject("cpu")};
        if (!plan.subjects[0]->asks_nobody)
            plan.unseen.clear();
        plan.chosen = chosen;
        plan.when = {0.01, reports};
        plan.clock = [now] {
            const auto ms = std::chrono::milliseconds(1800000000000 + std::lround(*now * 1000));
            return moment{std::chrono::system_clock::time_point(ms), *now};
        };
        sources.push_back(std::make_unique<clocked_source>(*this, port, std::move(plan), now));
    }
    std::ostringstream said;
    well = session(std::move(sources), {chosen, named, false, averages}, shown, to, said).run(stop);
    out = to.text;
    err = said.str();
    // Ports differ from run to run, so names take their place.
    for (std::size_t i = 0; i < ports.size(); ++i)
        for (std::string* text : {&out, &err}) {
            const std::string host = "127.0.0.1:" + std::to_string(ports[i]);
            for (std::size_t at; (at = text->find(host)) != text->npos;)
                text->replace(at, host.size(), i == 0 ? "board" : "other");
        }
}

#endif
