// Reading samples from a recording.
#include "recorded_history.h"

#include "json_lines.h"
#include "rates.h"
#include "recording_source.h"

#include <algorithm>
#include <map>

namespace exporter {

namespace {
tools::given_time at(time_point time) {
    tools::given_time made;
    made.time = time;
    return made;
}

// A recording that is being written is empty at first.
bool has_something(const std::string& path, const sample_query& wanted) {
    const auto hosts = tools::recorded_hosts(path);
    if (std::find(hosts.begin(), hosts.end(), wanted.host) == hosts.end())
        return false;
    const tools::recording_reader reader(path, wanted.host);
    const auto first = reader.from(wanted.since);
    return first && first->time < wanted.until;
}
} // namespace

bool find_recorded(const std::string& path, const sample_query& wanted, double interval,
                   sample_series& into) {
    if (!has_something(path, wanted))
        return false;
    const std::chrono::duration<double> span = wanted.until - wanted.since;
    tools::replay_plan plan;
    plan.subjects = wanted.subjects;
    plan.since = at(wanted.since);
    plan.until = at(wanted.until - std::chrono::milliseconds(1));
    plan.compares = true;
    const double apart = span.count() / static_cast<double>(wanted.points);
    const bool leaves_out = apart > interval;
    if (leaves_out)
        plan.when.interval = apart;
    tools::recording_source source(path, wanted.host, plan);
    std::map<const tools::subject*, tools::rate_former> rates;
    json_lines lines;
    tools::report got;
    while (source.next(got)) {
        for (tools::answer& each : got.answers) {
            tools::rate_former& former = rates.try_emplace(each.what, *each.what).first->second;
            if (got.gap || each.code < 0)
                former.forget();
            if (each.code < 0 || each.figures.rows.empty())
                continue;
            const auto seconds = former.compare(each.figures);
            if (got.base)
                continue;
            into[{wanted.host, each.what}].push_back(
                {each.figures.time, std::make_shared<const std::string>(lines.line_of(
                                        *each.what, wanted.host, each.figures, seconds))});
        }
    }
    return leaves_out;
}

} // namespace exporter
