// Asks the servers as long as somebody wants samples.
#include "feed.h"

#include "json_lines.h"

#include <algorithm>

namespace exporter {

namespace {
// A connection stays open this long after the last reader has gone, so that a page that is loaded
// again can use it.
constexpr std::chrono::seconds linger{10};
} // namespace

/// Belongs to one server's thread.
struct feed::forming {
    json_lines lines;
    std::map<const tools::subject*, tools::rate_former> rates;
    long reports = 0;
};

feed::feed(feed_plan plan, history& kept, host_states& states, messages& said,
           tools::output* recording)
    : plan_(std::move(plan)), history_(kept), states_(states), messages_(said),
      recording_(recording) {
    for (const tools::endpoint& each : plan_.servers) {
        servers_.push_back(std::make_unique<asked_server>());
        servers_.back()->at = each;
    }
    for (const auto& each : servers_)
        each->thread = std::thread([this, &of = *each] { run(of); });
}

feed::~feed() {
    stop();
    for (const auto& each : servers_)
        each->thread.join();
}

void feed::stop() {
    const std::lock_guard<std::mutex> guard(lock_);
    stopping_ = true;
    for (const auto& each : queues_)
        if (const auto queue = each.lock())
            queue->close();
    for (const auto& each : servers_)
        if (each->source != nullptr)
            each->source->cancel();
    changed_.notify_all();
}

void feed::fill(const std::shared_ptr<event_queue>& queue) {
    const std::lock_guard<std::mutex> guard(lock_); // no change of a state is missed
    for (const host_state& each : states_.all())
        if (queue->host.empty() || queue->host == each.host)
            queue->push("host", std::make_shared<const std::string>(to_json(each)));
    if (stopping_)
        queue->close();
    queues_.push_back(queue);
    refresh();
}

void feed::want(const subject_list& subjects, const std::string& host) {
    std::unique_lock<std::mutex> guard(lock_);
    for (const tools::subject* each : subjects)
        wanted_until_[each] = clock::now() + linger;
    refresh();
    const auto is_sampled = [&](const std::unique_ptr<asked_server>& each) {
        return (!host.empty() && host != each->at.text()) ||
               std::all_of(subjects.begin(), subjects.end(), [&](const tools::subject* what) {
                   return each->sampled.count(what) != 0;
               });
    };
    const auto longest = std::chrono::milliseconds(2200); // two that nobody answers
    changed_.wait_for(guard, longest, [&] {
        return stopping_ || std::all_of(servers_.begin(), servers_.end(), is_sampled);
    });
}

void feed::tell(const std::string& host, bool up, const std::string& why) {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        for (const auto& each : servers_)
            if (each->at.text() == host && each->source != nullptr)
                return;
    }
    if (const auto changed = states_.set(host, up, why))
        messages_.say_state(*changed);
}

// Called with the lock held, as are those that follow.
subject_list feed::wanted_now() {
    std::set<const tools::subject*> wanted(plan_.recorded.begin(), plan_.recorded.end());
    for (auto each = queues_.begin(); each != queues_.end();) {
        if (const auto queue = each->lock()) {
            for (const tools::subject* what : queue->subjects) {
                wanted.insert(what);
                wanted_until_[what] = clock::now() + linger;
            }
            ++each;
        } else {
            each = queues_.erase(each);
        }
    }
    for (const auto& [what, until] : wanted_until_)
        if (until > clock::now())
            wanted.insert(what);
    subject_list sorted; // by their places
    for (const tools::subject* each : tools::all_subjects())
        if (wanted.count(each) != 0)
            sorted.push_back(each);
    return sorted;
}

void feed::set_wanted(asked_server& each, subject_list wanted) {
    if (each.source == nullptr || wanted == each.wanted)
        return;
    if (wanted.empty())
        each.source->cancel();
    else
        each.source->set_subjects(wanted);
    each.wanted = std::move(wanted);
}

void feed::refresh() {
    const subject_list wanted = wanted_now();
    for (const auto& each : servers_)
        set_wanted(*each, wanted);
    changed_.notify_all();
}

void feed::run(asked_server& each) {
    std::unique_lock<std::mutex> guard(lock_);
    while (!stopping_) {
        if (wanted_now().empty())
            changed_.wait(guard);
        else
            ask_while_wanted(each, guard);
    }
}

// A server grants few ids and keeps state for each, so the connection is closed once nobody wants
// samples.
void feed::ask_while_wanted(asked_server& each, std::unique_lock<std::mutex>& guard) {
    tools::server_plan plan;
    plan.subjects = served_subjects();
    plan.when.interval = plan_.interval;
    plan.first_interval = std::min(plan_.interval, 0.3);
    plan.compares = true;
    plan.sparing = recording_ == nullptr; // a recording would lack them in between
    auto source = open_server(each.at, plan_.access, std::move(plan));
    each.source = source.get();
    each.wanted.clear();
    set_wanted(each, wanted_now());
    forming with;
    tools::report got;
    while (!stopping_ && !each.wanted.empty()) {
        guard.unlock();
        const bool more = source->next(got);
        if (more)
            take(each, with, got);
        guard.lock();
        if (!more)
            break;
        set_wanted(each, wanted_now());
    }
    each.source = nullptr;
    each.sampled.clear();
    guard.unlock();
    source.reset(); // may have to wait for the server, which nobody else should
    guard.lock();
}

void feed::take(asked_server& each, forming& with, tools::report& got) {
    const std::string host = each.at.text();
    const auto changed = states_.set(host, !got.away, each.source->away_text());
    if (changed) {
        messages_.say_state(*changed);
        push(host, nullptr, "host", std::make_shared<const std::string>(to_json(*changed)));
    }
    for (tools::answer& one : got.answers)
        take_answer(each, with, one, got.base);
    if (recording_ != nullptr && !got.base) {
        const std::lock_guard<std::mutex> guard(recording_lock_);
        recording_->end_report(host, with.reports++, got.away);
    }
    const std::lock_guard<std::mutex> guard(lock_);
    for (const tools::answer& one : got.answers)
        if (!got.base || one.figures.rows.empty() || !one.what->has_rates())
            each.sampled.insert(one.what);
    changed_.notify_all();
}

// A first report has no rates, so subjects with rates wait for the second one. The others are taken
// at once, because one that is seldom asked for may be missing from the second.
void feed::take_answer(asked_server& each, forming& with, tools::answer& got, bool base) {
    const std::string host = each.at.text();
    tools::rate_former& rates = with.rates.try_emplace(got.what, *got.what).first->second;
    const bool good = got.code >= 0 && got.failure.empty();
    messages_.say_of(host, got, false);
    std::optional<double> interval;
    if (good)
        interval = rates.compare(got.figures);
    else
        rates.forget();
    if (base && (!good || got.what->has_rates()))
        return;
    if (recording_ != nullptr && !base) {
        const std::lock_guard<std::mutex> guard(recording_lock_);
        if (good)
            recording_->show({*got.what, host, got.figures, interval});
        else
            recording_->miss({*got.what, host, got.figures, got.code, reason_of(got)});
    }
    if (!good)
        return;
    const auto line = std::make_shared<const std::string>(
        with.lines.line_of(*got.what, host, got.figures, interval));
    history_.add(host, *got.what, {got.figures.time, line});
    push(host, got.what, "sample", line);
}

void feed::push(const std::string& host, const tools::subject* what, const char* event,
                std::shared_ptr<const std::string> data) {
    const std::lock_guard<std::mutex> guard(lock_);
    for (const auto& each : queues_) {
        const auto queue = each.lock();
        if (!queue || (!queue->host.empty() && queue->host != host))
            continue;
        if (what == nullptr || std::find(queue->subjects.begin(), queue->subjects.end(), what) !=
                                   queue->subjects.end())
            queue->push(event, data);
    }
}

} // namespace exporter
