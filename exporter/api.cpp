// Answers requests for subjects, states and samples.
#include "api.h"

#include "metrics.h"
#ifdef MONCL_RECORDING
#include "recorded_history.h"
#endif
#include "time_text.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace exporter {

namespace {
constexpr const char* json_type = "application/json";
constexpr std::size_t usual_points = 1000;
constexpr std::size_t most_points = 10000;
constexpr std::size_t most_answer_bytes = 32 << 20;

const char* kind_name(tools::kind what) {
    constexpr const char* names[] = {"label", "text", "gauge", "counter", "rate"};
    return names[static_cast<std::size_t>(what)];
}

const char* unit_name(tools::unit in) {
    constexpr const char* names[] = {"",          "bytes", "bytes_per_second", "percent",
                                     "celsius",   "hertz", "seconds",          "frames_per_second",
                                     "per_second"};
    return names[static_cast<std::size_t>(in)];
}

// Seconds since the epoch, or a time as on the command line of moncl.
std::optional<time_point> read_point(const std::string& text, time_point now) {
    double seconds = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, seconds);
    if (read.ec == std::errc() && read.ptr == end && seconds >= 0 && seconds < 9e9)
        return time_point(std::chrono::duration_cast<time_point::duration>(
            std::chrono::duration<double>(seconds)));
    const auto given = tools::read_time(text);
    return given ? std::optional(given->resolve(now)) : std::nullopt;
}

response samples_response(const std::vector<kept_sample>& samples, bool thinned) {
    std::size_t bytes = 0;
    for (const kept_sample& each : samples)
        bytes += each.line->size() + 1;
    if (bytes > most_answer_bytes)
        return fault(400, "these samples are more than 32 MiB: ask for fewer points");
    std::string text = "{\"schema\":1,";
    text.reserve(bytes + 64);
    if (thinned)
        text += "\"thinned\":true,";
    text += "\"samples\":[";
    for (const kept_sample& each : samples) {
        if (text.back() != '[')
            text += ',';
        text += *each.line;
    }
    text += "]}\n";
    return {200, json_type, std::move(text), {{"Cache-Control", "no-store"}}, {}, {}};
}
} // namespace

subject_list default_subjects(const subject_list& named) {
    subject_list wanted;
    for (const tools::subject* each : served_subjects())
        if (!each->switches_on || std::find(named.begin(), named.end(), each) != named.end())
            wanted.push_back(each);
    return wanted;
}

response api::subjects(const request&) const {
    using nlohmann::ordered_json;
    ordered_json list = ordered_json::array();
    for (const tools::subject* each : served_subjects()) {
        ordered_json fields = ordered_json::array();
        for (const tools::field& one : each->fields)
            fields.push_back({{"name", one.name},
                              {"kind", kind_name(one.what)},
                              {"unit", unit_name(one.in)},
                              {"help", one.help}});
        list.push_back({{"name", each->name}, {"help", each->help}, {"fields", fields}});
    }
    const ordered_json all = {{"schema", 1}, {"subjects", list}};
    return {200, json_type, all.dump() + "\n", {}, {}, {}};
}

response api::hosts(const request&) const {
    std::string text = "{\"schema\":1,\"hosts\":[";
    for (const host_state& each : parts_.states.all()) {
        if (text.back() != '[')
            text += ',';
        text += to_json(each);
    }
    return {200, json_type, text + "]}\n", {{"Cache-Control", "no-store"}}, {}, {}};
}

// Reads the subjects and the host, which all queries have. Returns a fault, or the status 200.
response api::read_query(const request& asked, sample_query& into) const {
    into.host = asked.argument("host");
    if (!into.host.empty() && !parts_.states.has(into.host))
        return fault(404, "there is no host " + into.host + "; /api/v1/hosts lists them");
    const std::string wrong =
        read_subjects(asked.argument("subject"), default_subjects(parts_.named), into.subjects);
    return wrong.empty() ? response() : fault(404, wrong);
}

response api::latest(const request& asked) {
    sample_query wanted;
    if (response wrong = read_query(asked, wanted); wrong.status != 200)
        return wrong;
    parts_.samples.want(wanted.subjects, wanted.host);
    // Subjects that change slowly are asked for every ten seconds. An older sample is out of date.
    const std::chrono::duration<double> newest_age(12 + 2 * parts_.interval);
    wanted.since = std::chrono::system_clock::now() -
                   std::chrono::duration_cast<time_point::duration>(newest_age);
    return samples_response(parts_.kept.newest(wanted), false);
}

response api::find_history(const request& asked) {
    sample_query wanted;
    if (response wrong = read_query(asked, wanted); wrong.status != 200)
        return wrong;
    const time_point now = std::chrono::system_clock::now();
    const auto since = read_point(asked.argument("since"), now);
    if (!since)
        return fault(400, "history needs since=TIME: seconds since 1970, or such as -15m");
    wanted.since = *since;
    wanted.until = now;
    if (const std::string until = asked.argument("until"); !until.empty()) {
        const auto read = read_point(until, now);
        if (!read)
            return fault(400, "until is a time: seconds since 1970, or such as -5m");
        wanted.until = *read;
    }
    wanted.points = usual_points;
    if (const std::string points = asked.argument("points"); !points.empty()) {
        const char* end = points.data() + points.size();
        const auto read = std::from_chars(points.data(), end, wanted.points);
        if (read.ec != std::errc() || read.ptr != end || wanted.points < 1 ||
            wanted.points > most_points)
            return fault(400, "points is a number from 1 to 10000");
    }
    sample_series found = parts_.kept.find(wanted);
    bool thinned = add_recorded(wanted, found);
    for (auto& each : found)
        thinned = thin(each.second, wanted.points) || thinned;
    return samples_response(in_order(found), thinned);
}

#ifdef MONCL_RECORDING
// The memory holds the newest samples. The recording also holds older ones: those of an earlier
// run, and those that the memory has dropped since.
bool api::add_recorded(const sample_query& wanted, sample_series& into) const {
    bool leaves_out = false;
    if (parts_.recording.empty())
        return leaves_out;
    for (const host_state& each : parts_.states.all()) {
        if (!wanted.host.empty() && wanted.host != each.host)
            continue;
        sample_query before = wanted;
        before.host = each.host;
        for (const auto& [of, samples] : into)
            if (of.first == each.host)
                before.until = std::min(before.until, samples.front().time);
        sample_series recorded;
        if (before.until > before.since)
            leaves_out =
                find_recorded(parts_.recording, before, parts_.interval, recorded) || leaves_out;
        for (auto& [of, samples] : recorded)
            into[of].insert(into[of].begin(), samples.begin(), samples.end());
    }
    return leaves_out;
}
#else
bool api::add_recorded(const sample_query&, sample_series&) const {
    return false;
}
#endif

response api::stream(const request& asked) {
    sample_query wanted;
    if (response wrong = read_query(asked, wanted); wrong.status != 200)
        return wrong;
    const auto queue = std::make_shared<event_queue>(wanted.subjects, wanted.host);
    parts_.samples.fill(queue);
    response made;
    made.type = "text/event-stream";
    made.headers = {{"Cache-Control", "no-store"}};
    made.reader = [queue](char* into, std::size_t size) { return queue->read(into, size); };
    made.cut = queue->given_up();
    return made;
}

} // namespace exporter
