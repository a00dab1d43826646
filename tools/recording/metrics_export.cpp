// Writing a recording family by family.
#include "metrics_export.h"

#include "figure_text.h"
#include "layout.h"
#include "openmetrics.h"

#include <algorithm>

namespace tools {

namespace {
// Points that are held in memory at a time.
constexpr std::int64_t batch_points = 500000;
constexpr std::size_t flush_bytes = 1 << 16;
} // namespace

/// The ticks of one host that are wanted, in order.
struct metrics_export::host_ticks {
    struct tick {
        std::int64_t tick;
        std::int64_t time; // milliseconds
        bool away;
    };
    std::string name;
    std::int64_t id;
    std::vector<tick> ticks;

    /// The first one from tick @p number on.
    std::vector<tick>::const_iterator from(std::int64_t number) const {
        return std::lower_bound(ticks.begin(), ticks.end(), number,
                                [](const tick& each, std::int64_t n) { return each.tick < n; });
    }
};

/// One row's metrics: everything that has the same labels.
struct metrics_export::thing {
    std::string labels;
    const host_ticks* host = nullptr;
    std::vector<std::int64_t> series;
    std::map<std::string, std::vector<std::int64_t>> described; // series, by labels with texts
    std::int64_t rows = 0;                                      // of all its series
    struct point {
        std::int64_t tick;
        std::int64_t count; // of ticks that it stands for
        value figure;
        std::int64_t series;
    };
    std::vector<point> points; // of the field in hand
};

/// One field of a subject, or its texts.
struct metrics_export::job {
    const subject* what;
    std::size_t field; // the texts: the number of fields
    metric_names names;
    std::vector<thing>* things;
    bool opens_family;
};

metrics_export::metrics_export(const std::string& path, const std::vector<std::string>& hosts,
                               const replay_plan& plan, writer& to)
    : file_(open_recording(path)), plan_(plan), to_(to), with_host_(hosts.size() > 1) {
    hosts_.reserve(hosts.size()); // things point into it
    for (const std::string& name : hosts)
        add_host(path, name, plan);
    for (const subject* what : plan.subjects)
        if (!columns_of(*file_, std::string(what->name) + "_data").empty())
            things_.emplace_back(what, things_of(*what));
    for (auto& [what, things] : things_)
        plan_subject(*what);
}

metrics_export::~metrics_export() = default;

void metrics_export::add_host(const std::string& path, const std::string& name,
                              const replay_plan& plan) {
    const recording_reader reader(path, name);
    const replay_range range = find_range(reader, plan.since, plan.until);
    first_ = hosts_.empty() ? range.first.tick : std::min(first_, range.first.tick);
    last_ = std::max(last_, range.last.tick);
    host_ticks of{name, 0, {}};
    statement ask(*file_, "SELECT tick, time, away, host FROM ticks WHERE tick BETWEEN ? AND ? AND "
                          "host = (SELECT id FROM hosts WHERE name = ?) ORDER BY tick");
    ask.bind(1, range.first.tick);
    ask.bind(2, range.last.tick);
    ask.bind(3, std::string_view(name));
    const auto step = static_cast<std::int64_t>(plan.when.interval * 1000);
    std::int64_t latest = -1;
    std::int64_t wanted = 0;
    while (ask.step()) {
        const std::int64_t time = ask.integer(1);
        of.id = ask.integer(3);
        if (time < wanted)
            continue;
        if (time <= latest) {
            ++left_out_;
            continue;
        }
        latest = time;
        wanted = step > 0 ? time + step : 0;
        of.ticks.push_back({ask.integer(0), time, ask.integer(2) != 0});
    }
    hosts_.push_back(std::move(of));
}

std::vector<metrics_export::thing> metrics_export::things_of(const subject& what) {
    const recorded_fields fields(what);
    std::string sql = "SELECT id, host, is_total, rows";
    const auto present = columns_of(*file_, std::string(what.name) + "_series");
    for (const std::size_t i : fields.words) {
        const std::string name = what.fields[i].name;
        const bool has = std::find(present.begin(), present.end(), name) != present.end();
        sql += has ? ", " + quoted(name) : ", NULL";
    }
    statement ask(*file_, sql + " FROM (SELECT key & " + std::to_string(series_max) +
                              " AS series, sum(ticks) AS rows FROM " + table_name(what, "_data") +
                              " WHERE key >= ? AND key < ? GROUP BY 1) JOIN " +
                              table_name(what, "_series") + " ON id = series ORDER BY id");
    ask.bind(1, key_of(std::max<std::int64_t>(first_ - longest_span, 0)));
    ask.bind(2, key_of(last_ + 1));
    std::map<std::string, thing> parts;
    std::map<std::string, thing> totals;
    while (ask.step()) {
        const std::int64_t host_id = ask.integer(1);
        const auto host = std::find_if(hosts_.begin(), hosts_.end(),
                                       [&](const host_ticks& h) { return h.id == host_id; });
        row r;
        r.values.resize(fields.words.size() + fields.figures.size());
        int column = 4;
        for (const std::size_t i : fields.words)
            r.values[i] = ask.any(column++);
        if (host == hosts_.end() || !is_chosen(what, plan_.chosen, r))
            continue;
        const std::string labels = metric_labels(what, with_host_ ? &host->name : nullptr, r);
        thing& of = (ask.integer(2) != 0 ? totals : parts)[labels];
        of.labels = labels;
        of.host = &*host;
        of.series.push_back(ask.integer(0));
        of.rows += ask.integer(3);
        if (const auto described = info_labels(what, labels, r))
            of.described[*described].push_back(ask.integer(0));
    }
    // Rows that are sums are omitted if their parts are there: whoever reads metrics can sum.
    std::vector<thing> all;
    for (auto& each : parts.empty() ? totals : parts)
        all.push_back(std::move(each.second));
    return all;
}

void metrics_export::plan_subject(const subject& what) {
    const auto found = std::find_if(things_.begin(), things_.end(),
                                    [&](const auto& each) { return each.first == &what; });
    std::vector<job> jobs;
    for (std::size_t i = 0; i < what.fields.size(); ++i)
        if (auto names = metric_names_of(what, what.fields[i]))
            jobs.push_back({&what, i, std::move(*names), &found->second, false});
    const bool described = std::any_of(found->second.begin(), found->second.end(),
                                       [](const thing& each) { return !each.described.empty(); });
    if (described)
        jobs.push_back({&what, what.fields.size(), info_names_of(what), &found->second, false});
    std::stable_sort(jobs.begin(), jobs.end(),
                     [](const job& a, const job& b) { return a.names.family < b.names.family; });
    for (job& each : jobs) {
        each.opens_family = jobs_.empty() || jobs_.back().names.family != each.names.family;
        jobs_.push_back(std::move(each));
    }
}

void metrics_export::run(const std::function<bool(double)>& progress) {
    write_up();
    double done = 0;
    for (const job& each : jobs_) {
        if (to_.is_closed() || !progress(done / static_cast<double>(jobs_.size())))
            return;
        write_job(each);
        ++done;
    }
    to_.add("# EOF\n");
    to_.flush();
    progress(1);
}

void metrics_export::append_time(std::int64_t ms) {
    to_.text += ' ';
    to_.text += std::to_string(ms / 1000);
    char digits[] = {'.', 0, 0, 0, '\n'};
    digits[1] = static_cast<char>('0' + ms % 1000 / 100);
    digits[2] = static_cast<char>('0' + ms % 100 / 10);
    digits[3] = static_cast<char>('0' + ms % 10);
    to_.add({digits, sizeof digits});
}

void metrics_export::flush_if_long() {
    if (to_.text.size() > flush_bytes)
        to_.flush();
}

void metrics_export::write_up() {
    append_family(to_.text, up_names());
    for (const host_ticks& host : hosts_) {
        const std::string labels = with_host_ ? host_label(host.name) : std::string();
        for (const host_ticks::tick& each : host.ticks) {
            append_line_start(to_.text, up_names().line, labels, {});
            to_.add(each.away ? "0" : "1");
            append_time(each.time);
            flush_if_long();
        }
    }
}

// Writes the things in batches, to limit the points held in memory.
void metrics_export::write_job(const job& each) {
    if (each.opens_family)
        append_family(to_.text, each.names);
    const std::vector<thing>& things = *each.things;
    for (std::size_t from = 0; from < things.size();) {
        std::size_t to = from;
        for (std::int64_t rows = 0; to < things.size() && (to == from || rows < batch_points); ++to)
            rows += things[to].rows;
        write_batch(each, from, to);
        from = to;
    }
}

void metrics_export::write_batch(const job& each, std::size_t from, std::size_t to) {
    std::map<std::int64_t, thing*> by_series;
    for (std::size_t i = from; i < to; ++i)
        for (const std::int64_t series : (*each.things)[i].series)
            by_series[series] = &(*each.things)[i];
    const bool texts = each.field == each.what->fields.size();
    const std::string column = texts ? "1" : quoted(each.what->fields[each.field].name);
    statement ask(*file_, "SELECT key, ticks, " + column + " FROM " +
                              table_name(*each.what, "_data") +
                              " WHERE key >= ? AND key < ? ORDER BY key");
    ask.bind(1, key_of(std::max<std::int64_t>(first_ - longest_span, 0)));
    ask.bind(2, key_of(last_ + 1));
    while (ask.step()) {
        const std::int64_t key = ask.integer(0);
        const auto found = by_series.find(series_of(key));
        if (found != by_series.end())
            found->second->points.push_back(
                {tick_of(key), span_of(ask.integer(1)), ask.any(2), series_of(key)});
    }
    for (std::size_t i = from; i < to; ++i) {
        thing& of = (*each.things)[i];
        if (texts)
            write_info(each, of);
        else
            write_points(each, of.labels, of, of.series);
        of.points = {};
    }
}

// Points of the thing that belong to one of the series.
void metrics_export::write_points(const job& each, const std::string& labels, const thing& of,
                                  const std::vector<std::int64_t>& series) {
    const bool texts = each.field == each.what->fields.size();
    std::int64_t latest = -1; // tick
    for (const thing::point& point : of.points) {
        if (std::find(series.begin(), series.end(), point.series) == series.end())
            continue;
        const value figure =
            texts ? point.figure : from_stored(each.what->fields[each.field], point.figure);
        if (!is_known(figure) || std::holds_alternative<std::string>(figure))
            continue;
        auto at = of.host->from(std::max(point.tick, latest + 1));
        for (; at != of.host->ticks.end() && at->tick < point.tick + point.count; ++at) {
            append_line_start(to_.text, each.names.line, labels, each.names.share);
            if (texts)
                to_.add("1");
            else
                append_metric_value(to_.text, each.what->fields[each.field], figure);
            append_time(at->time);
            latest = at->tick;
            flush_if_long();
        }
    }
}

void metrics_export::write_info(const job& each, const thing& of) {
    for (const auto& [labels, series] : of.described)
        write_points(each, labels, of, series);
}

} // namespace tools
