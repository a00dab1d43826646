// Choosing ticks and rows of a recording.
#include "recording_source.h"

#include <algorithm>
#include <utility>

namespace tools {

replay_range find_range(const recording_reader& from, const std::optional<given_time>& since,
                        const std::optional<given_time>& until) {
    const auto first = from.first();
    const auto last = from.last();
    if (!first || !last)
        throw std::runtime_error("the recording has nothing of " + from.host());
    std::optional<recording_reader::time_point> start;
    if (since)
        start = since->resolve(last->time);
    const auto begin = start ? from.from(*start) : first;
    auto end = last;
    if (until) {
        const auto beyond =
            from.from(until->resolve(last->time, start) + std::chrono::milliseconds(1));
        if (beyond)
            end = from.before(beyond->tick);
    }
    if (!begin || !end || end->tick < begin->tick)
        throw std::runtime_error("nothing of " + from.host() + " was recorded in that time");
    return {*begin, *end};
}

namespace {
const std::string* text_of(const value& v) {
    return std::get_if<std::string>(&v);
}

bool is_one_of(const value& v, const std::vector<std::string>& wanted) {
    const std::string* text = text_of(v);
    return text != nullptr && std::find(wanted.begin(), wanted.end(), *text) != wanted.end();
}

// Subjects that choose their rows themselves compare names with texts as well as labels.
bool has_name(const subject& what, const std::vector<std::string>& names, const row& r) {
    if (names.empty())
        return true;
    for (std::size_t i = 0; i < r.values.size(); ++i) {
        const kind of = what.fields[i].what;
        const bool names_it = of == kind::label || (of == kind::text && what.selects_names);
        if (names_it && is_one_of(r.values[i], names))
            return true;
    }
    return false;
}

bool has_chosen_label(const subject& what, const selection& chosen, const row& r) {
    for (std::size_t i = 0; i < r.values.size(); ++i) {
        const std::string_view name = what.fields[i].name;
        if (what.fields[i].what != kind::label || text_of(r.values[i]) == nullptr)
            continue;
        const std::string& text = *text_of(r.values[i]);
        if (name == "cpu" && !chosen.cpus.empty() && !is_one_of(r.values[i], chosen.cpus) &&
            !(chosen.every_cpu && text != "all"))
            return false;
        const auto is_text = [&](int pid) { return std::to_string(pid) == text; };
        if (name == "pid" && !chosen.pids.empty() &&
            std::none_of(chosen.pids.begin(), chosen.pids.end(), is_text))
            return false;
    }
    return true;
}

double as_number(const value& v) {
    if (const auto* natural = std::get_if<std::uint64_t>(&v))
        return static_cast<double>(*natural);
    if (const auto* integer = std::get_if<std::int64_t>(&v))
        return static_cast<double>(*integer);
    const auto* number = std::get_if<double>(&v);
    return number == nullptr ? -1 : *number;
}
} // namespace

bool is_chosen(const subject& what, const selection& chosen, const row& r) {
    return has_name(what, chosen.names, r) && has_chosen_label(what, chosen, r);
}

void keep_chosen(const subject& what, const selection& chosen, sample& figures) {
    auto& rows = figures.rows;
    if (what.selects_names)
        for (const std::string& name : chosen.names)
            if (std::none_of(rows.begin(), rows.end(),
                             [&](const row& r) { return has_name(what, {name}, r); }))
                figures.faults.push_back(std::string(what.name) + ": nothing of " + name +
                                         " was recorded");
    rows.erase(std::remove_if(rows.begin(), rows.end(),
                              [&](const row& r) { return !is_chosen(what, chosen, r); }),
               rows.end());
    // Rates are not formed yet, so only a gauge can say which rows are the busiest.
    if (chosen.rows == 0 || rows.size() <= chosen.rows || *what.order_by == '\0')
        return;
    const std::size_t by = what.index_of(what.order_by);
    if (what.fields[by].what == kind::rate)
        return;
    std::stable_sort(rows.begin(), rows.end(), [by](const row& a, const row& b) {
        return as_number(a.values[by]) > as_number(b.values[by]);
    });
    rows.resize(chosen.rows);
}

// ---------------------------------------------------------------------------------- the order

std::size_t replay_order::join() {
    const std::lock_guard<std::mutex> guard(lock_);
    next_.emplace_back(time_point::min()); // a source that was not asked yet comes first
    return next_.size() - 1;
}

// Of sources with equal times the one that joined first comes first.
bool replay_order::is_first(std::size_t place) const {
    for (std::size_t other = 0; other < next_.size(); ++other)
        if (other != place && next_[other] &&
            std::pair(*next_[other], other) < std::pair(*next_[place], place))
            return false;
    return true;
}

bool replay_order::wait_for_turn(std::size_t place, time_point time) {
    std::unique_lock<std::mutex> guard(lock_);
    if (next_[place])
        next_[place] = time;
    moved_.notify_all();
    moved_.wait(guard, [&] { return !next_[place] || is_first(place); });
    return next_[place].has_value();
}

void replay_order::leave(std::size_t place) {
    const std::lock_guard<std::mutex> guard(lock_);
    next_[place].reset();
    moved_.notify_all();
}

// --------------------------------------------------------------------------------- the source

recording_source::recording_source(const std::string& path, const std::string& host,
                                   replay_plan plan, std::shared_ptr<replay_order> order)
    : reader_(path, host), plan_(std::move(plan)),
      range_(find_range(reader_, plan_.since, plan_.until)), order_(std::move(order)),
      place_(order_->join()), anchor_(range_.first.time) {
    // If all reports are wanted, the first one is compared with the one before the range.
    if (plan_.when.interval > 0 || !plan_.compares)
        return;
    plan_.compares = false;
    const auto before = reader_.before(range_.first.tick);
    if (before && before->run == range_.first.run) {
        plan_.compares = true;
        range_.first = *before;
    }
}

void recording_source::cancel() {
    cancelled_ = true;
    order_->leave(place_);
    const std::lock_guard<std::mutex> guard(pace_lock_);
    paced_.notify_all();
}

void recording_source::set_interval(double seconds) {
    const std::lock_guard<std::mutex> guard(pace_lock_);
    pace_ = seconds;
}

void recording_source::step(long reports) {
    const std::lock_guard<std::mutex> guard(pace_lock_);
    steps_ += reports;
    playing_ = false;
    paced_.notify_all();
}

void recording_source::set_playing(bool on) {
    const std::lock_guard<std::mutex> guard(pace_lock_);
    playing_ = on;
    paced_.notify_all();
}

// How many reports to go on, or back if that is negative; 0 after `cancel`.
long recording_source::wait_for_step() {
    std::unique_lock<std::mutex> guard(pace_lock_);
    const auto next_time = std::chrono::steady_clock::now() + std::chrono::duration<double>(pace_);
    const auto asked = [this] { return cancelled_ || steps_ != 0; };
    while (!asked()) {
        if (!playing_)
            paced_.wait(guard, [&] { return asked() || playing_; });
        else if (!paced_.wait_until(guard, next_time, [&] { return asked() || !playing_; }))
            return 1;
    }
    return cancelled_ ? 0 : std::exchange(steps_, 0);
}

// After a step back the report before the wanted one is given first, for the wanted one to be
// compared with.
bool recording_source::read_step(report& into) {
    std::optional<recorded_tick> to = std::exchange(target_, std::nullopt);
    bool compares = false;
    while (!to) {
        if (!at_) {
            to = range_.first;
            compares = plan_.compares;
            break;
        }
        long steps = wait_for_step();
        if (steps == 0)
            return false;
        compares = steps < 0;
        recorded_tick reached = *at_;
        for (; steps > 0; --steps)
            if (const auto next = reader_.after(reached.tick);
                next && next->tick <= range_.last.tick)
                reached = *next;
        for (; steps < 0; ++steps)
            if (const auto before = reader_.before(reached.tick);
                before && before->tick >= range_.first.tick)
                reached = *before;
        if (reached.tick == at_->tick) // an end of the range
            continue;
        to = reached;
        if (const auto before = reader_.before(reached.tick); compares && before) {
            target_ = reached;
            to = *before;
        }
    }
    give(*to, into);
    into.base = compares;
    into.gap = compares || (at_ && is_gap(*at_, *to));
    at_ = to;
    return true;
}

std::string recording_source::away_text() const {
    return host() + " did not answer while it was recorded";
}

// The nearer of the two ticks around the wanted time.
std::optional<recorded_tick>
recording_source::nearest(std::chrono::system_clock::time_point wanted) const {
    const auto later = reader_.from(wanted);
    if (!later)
        return reader_.last();
    const auto earlier = reader_.before(later->tick);
    if (earlier && wanted - earlier->time < later->time - wanted)
        return earlier;
    return later;
}

std::optional<recorded_tick> recording_source::next_tick() {
    if (!at_)
        return range_.first;
    const auto following = reader_.after(at_->tick);
    if (!following || following->tick > range_.last.tick || plan_.when.interval <= 0)
        return following;
    const auto period =
        std::chrono::duration_cast<std::chrono::system_clock::duration>(plan_.when.period());
    // Skips points that fall into a gap, and points between two reports if the steps are finer than
    // the recording.
    const auto passed = (following->time - anchor_) / period;
    points_ = std::max(points_ + 1, static_cast<long>(passed));
    const auto wanted = anchor_ + points_ * period;
    if (wanted > range_.last.time + period / 2)
        return std::nullopt;
    const auto found = nearest(wanted);
    return found && found->tick > at_->tick ? found : following;
}

bool recording_source::next(report& into) {
    const bool enough = plan_.when.count > 0 && done_ == plan_.when.count;
    if (cancelled_ || enough || failed_) {
        order_->leave(place_);
        return false;
    }
    try {
        const bool more = plan_.stands_still ? read_step(into) : read_next(into);
        if (!more)
            order_->leave(place_);
        return more;
    } catch (const std::exception& e) { // the file was damaged or taken away
        order_->leave(place_);
        failed_ = true;
        into = {};
        into.answers.resize(1);
        into.answers[0].what = plan_.subjects.front();
        into.answers[0].failure = e.what();
        return true;
    }
}

bool recording_source::read_next(report& into) {
    const auto tick = next_tick();
    if (!tick || tick->tick > range_.last.tick || !order_->wait_for_turn(place_, tick->time))
        return false;
    give(*tick, into);
    into.base = plan_.compares && !at_;
    into.gap = at_ && is_gap(*at_, *tick);
    at_ = tick;
    done_ += !into.base;
    const auto whole = static_cast<double>(range_.last.tick - range_.first.tick);
    progress_ = whole > 0 ? static_cast<double>(tick->tick - range_.first.tick) / whole : 1;
    return true;
}

// A restart of the recording is no gap if it makes the step only a little longer, because the
// host's counters went on meanwhile.
bool recording_source::is_gap(const recorded_tick& before, const recorded_tick& now) const {
    constexpr double longest = 1.5; // of a step
    return before.run != now.run && now.seconds - before.seconds > longest * plan_.when.interval;
}

void recording_source::give(const recorded_tick& at, report& into) {
    into = reader_.read(at, plan_.subjects, at_ ? at_->tick : -1);
    for (answer& each : into.answers) {
        keep_chosen(*each.what, plan_.chosen, each.figures);
        // Counters with an incarnation may start again with each run, as those of `perf` do.
        constexpr int run_shift = 40;
        for (row& r : each.figures.rows)
            if (r.incarnation != 0)
                r.incarnation ^= static_cast<std::uint64_t>(at.run) << run_shift;
    }
}

} // namespace tools
