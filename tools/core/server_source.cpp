// Asking one server on a schedule.
#include "server_source.h"

#include "library_output.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <sstream>
#include <utility>

namespace tools {

moment moment_now() {
    const auto steady = std::chrono::steady_clock::now().time_since_epoch();
    return {std::chrono::system_clock::now(), std::chrono::duration<double>(steady).count()};
}

server_source::server_source(endpoint at, std::string host, server_plan plan)
    : server_(std::move(at)), host_(std::move(host)), plan_(std::move(plan)),
      ticks_(ticker::clock::now(), plan_.when.period()) {
    server_.chosen = plan_.chosen;
    for (const auto* list : {&plan_.subjects, &plan_.unseen})
        for (const subject* each : *list)
            subjects_.push_back({each, each->open(plan_.chosen), list == &plan_.subjects, 0});
    // Subjects about the other queries come after these.
    std::stable_partition(subjects_.begin(), subjects_.end(),
                          [](const opened& each) { return !each.what->asks_nobody; });
}

server_source::~server_source() = default;

std::string server_source::away_text() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return away_text_;
}

void server_source::cancel() {
    const std::lock_guard<std::mutex> guard(lock_);
    cancelled_ = true;
    wake_.notify_all();
}

void server_source::set_interval(double seconds) {
    const std::lock_guard<std::mutex> guard(lock_);
    new_interval_ = seconds;
    wake_.notify_all();
}

void server_source::set_subjects(const std::vector<const subject*>& wanted) {
    const std::lock_guard<std::mutex> guard(lock_);
    new_subjects_ = wanted;
    wake_.notify_all();
}

// Called with the lock held.
ticker::clock::time_point server_source::next_tick() {
    const auto now = ticker::clock::now();
    if (new_interval_ > 0) {
        plan_.when.interval = std::exchange(new_interval_, 0);
        ticks_ = ticker(now, plan_.when.period());
    }
    return ticks_.next(now);
}

// The first report is taken at once, later ones at the ticks.
bool server_source::wait() {
    std::unique_lock<std::mutex> guard(lock_);
    auto when = ticker::clock::now();
    if (reports_ == 1 && plan_.first_interval > 0)
        when += std::chrono::microseconds(std::llround(plan_.first_interval * 1e6));
    else if (reports_ > 0)
        when = next_tick();
    ++reports_;
    // New subjects are asked for at once.
    while (!cancelled_ && !new_subjects_ &&
           wake_.wait_until(guard, when) != std::cv_status::timeout)
        if (new_interval_ > 0)
            when = next_tick();
    if (new_subjects_)
        wanted_ = *std::exchange(new_subjects_, std::nullopt);
    return !cancelled_;
}

bool server_source::next(report& into) {
    const long wanted = plan_.when.reports();
    if (ended_ || (wanted > 0 && done_ == wanted) || !wait())
        return false;
    into = {};
    if (!take(into, ticker::clock::time_point::max()))
        return false;
    into.base = plan_.compares && !based_ && !into.away;
    based_ = based_ || into.base;
    // Reports that a server misses while it is away count, too.
    done_ += !into.base;
    return true;
}

void server_source::ask_now(const std::vector<const subject*>& wanted,
                            ticker::clock::time_point until, report& into) {
    wanted_ = wanted;
    into = {};
    take(into, until);
}

bool server_source::is_cancelled() const {
    const std::lock_guard<std::mutex> guard(lock_);
    return cancelled_;
}

// Returns whether it was not cancelled meanwhile: a server may take a second for each query.
bool server_source::take(report& into, ticker::clock::time_point until) {
    server_.begin_round();
    into.away = !server_.connect();
    if (into.away) // after its return it is asked for everything
        for (opened& each : subjects_)
            each.not_before = 0;
    library_output::take();
    for (opened& each : subjects_) {
        if (is_cancelled())
            return false;
        if (is_due(each) && ticker::clock::now() < until)
            ask_one(each, into);
    }
    if (into.away) {
        const std::lock_guard<std::mutex> guard(lock_);
        away_text_ = server_.away_text();
    }
    ended_ =
        !into.answers.empty() && std::all_of(into.answers.begin(), into.answers.end(),
                                             [](const answer& each) { return each.figures.ended; });
    return true;
}

int server_source::ask(const opened& each, answer& got) {
    std::ostringstream report;
    const int code = plan_.library_report ? each.what->library_report(server_, report)
                                          : each.ask(server_, got.figures);
    const std::string printed = library_output::take();
    if (plan_.library_report)
        got.figures.faults = std::exchange(server_.faults, {});
    got.failure = library_output::failure_in(printed);
    got.library_report = report.str() + printed;
    return code;
}

bool server_source::is_due(const opened& each) {
    const bool wanted =
        wanted_.empty() || std::find(wanted_.begin(), wanted_.end(), each.what) != wanted_.end();
    return wanted && (!plan_.sparing || plan_.clock().seconds >= each.not_before);
}

void server_source::ask_one(opened& each, report& into) {
    answer got;
    got.what = each.what;
    got.code = -ETIMEDOUT;
    got.is_servers_own = false;
    query_record& record = server_.queries[each.what->name];
    record.duration_seconds.reset();
    if (!into.away || each.what->asks_nobody) {
        const double start = plan_.clock().seconds;
        got.code = ask(each, got);
        record.duration_seconds = plan_.clock().seconds - start;
        got.duration_seconds = record.duration_seconds;
        if (got.code < 0)
            got.is_servers_own = server_.is_servers_own(got.code);
        into.away = into.away || (got.code < 0 && !got.is_servers_own);
    }
    const moment receipt = plan_.clock();
    got.figures.time = receipt.time;
    got.figures.seconds = receipt.seconds;
    record.answered = got.code >= 0 && got.failure.empty();
    ++record.asked;
    record.failed += !record.answered;
    constexpr double seldom = 10; // seconds
    const bool can_wait =
        got.code == -ENODEV ||
        (got.code >= 0 && (each.what->changes_slowly || got.figures.rows.empty()));
    each.not_before = can_wait && !into.away ? receipt.seconds + seldom : 0;
    if (each.seen)
        into.answers.push_back(std::move(got));
}

} // namespace tools
