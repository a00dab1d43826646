// Making expositions.
#include "metrics.h"

#include "accept.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace exporter {

namespace {
constexpr std::size_t most_probed = 100; // servers at a time
constexpr std::chrono::minutes probed_for{5};

subject_list usual_subjects() {
    subject_list usual = served_subjects();
    usual.erase(std::remove_if(usual.begin(), usual.end(),
                               [](const tools::subject* each) {
                                   return each->has_many_rows || each->switches_on;
                               }),
                usual.end());
    return usual;
}

// Prometheus sends how long it waits. The answer needs some of that time to arrive.
clock::time_point deadline_of(const request& asked) {
    double seconds = 10;
    if (const auto header = asked.header("x-prometheus-scrape-timeout-seconds")) {
        double given = 0;
        const char* end = header->data() + header->size();
        const auto read = std::from_chars(header->data(), end, given);
        if (read.ec == std::errc() && read.ptr == end && given > 0)
            seconds = std::min(given, 60.0);
    }
    const double way_back = std::min(0.25, seconds / 4);
    return clock::now() + std::chrono::milliseconds(static_cast<long>((seconds - way_back) * 1000));
}
} // namespace

std::string read_subjects(const std::string& text, const subject_list& fallback,
                          subject_list& into) {
    into.clear();
    std::istringstream names(text);
    for (std::string name; std::getline(names, name, ',');) {
        const tools::subject* found = tools::find_subject(name);
        if (found == nullptr || !is_served(*found))
            return "there is no subject " + name + " here; /api/v1/subjects lists them";
        if (std::find(into.begin(), into.end(), found) == into.end())
            into.push_back(found);
    }
    if (into.empty())
        into = fallback;
    return {};
}

metrics_pages::metrics_pages(
    metrics_plan plan, messages& said,
    std::function<void(const std::string&, bool, const std::string&)> asked)
    : plan_(std::move(plan)), named_(!plan_.subjects.empty()), messages_(said),
      targets_(plan_.allowed_targets), asked_(std::move(asked)) {
    if (!named_)
        plan_.subjects = usual_subjects();
    for (const tools::endpoint& each : plan_.servers)
        workers_.push_back(std::make_shared<scrape_worker>(each, plan_.access));
}

void metrics_pages::stop() {
    const std::lock_guard<std::mutex> guard(lock_);
    stopping_ = true;
    for (const worker& each : workers_)
        each->stop();
    for (const auto& each : probed_)
        each.second->stop();
}

response metrics_pages::metrics(const request& asked) {
    return scrape_all(workers_, plan_.subjects, asked, true);
}

response metrics_pages::probe(const request& asked) {
    const std::string target = asked.argument("target");
    if (target.empty())
        return fault(400, "probe needs target=HOST[:PORT]");
    const auto at = targets_.find(target);
    if (!at)
        return fault(403, "the target " + target + " is not allowed: see --allow-target");
    subject_list subjects;
    if (const std::string wrong =
            read_subjects(asked.argument("subject"), plan_.subjects, subjects);
        !wrong.empty())
        return fault(400, wrong);
    const worker found = worker_for(*at);
    if (!found)
        return fault(503, "too many targets are being probed");
    return scrape_all({found}, subjects, asked, false);
}

// Connections to targets, too, are kept as long as the targets are probed.
metrics_pages::worker metrics_pages::worker_for(const tools::endpoint& target) {
    std::vector<worker> ended; // after the lock is given back: ending one may take a second
    const std::lock_guard<std::mutex> guard(lock_);
    if (stopping_)
        return nullptr;
    for (auto each = probed_.begin(); each != probed_.end();) {
        const bool idle = clock::now() - each->second->last_order() > probed_for;
        if (idle && each->first != target.text()) {
            ended.push_back(std::move(each->second));
            each = probed_.erase(each);
        } else {
            ++each;
        }
    }
    worker& found = probed_[target.text()];
    if (!found && probed_.size() <= most_probed) {
        tools::endpoint at = target;
        at.keys = plan_.access.target_keys;
        found = std::make_shared<scrape_worker>(at, plan_.access);
    }
    const worker made = found;
    if (!made)
        probed_.erase(target.text());
    return made;
}

response metrics_pages::scrape_all(const std::vector<worker>& workers, const subject_list& subjects,
                                   const request& asked, bool tells) {
    const clock::time_point deadline = deadline_of(asked);
    std::vector<std::shared_ptr<scrape>> ordered;
    for (const worker& each : workers)
        ordered.push_back(each->order(subjects, deadline));
    const auto accept = asked.header("accept");
    const tools::metrics_form form = preferred_form(accept.value_or(""));
    tools::exposition page(form, true);
    for (std::size_t i = 0; i < workers.size(); ++i) {
        const bool done = workers[i]->wait_for(*ordered[i], deadline);
        add(page, *workers[i], *ordered[i], done, tells);
    }
    return {200, content_type(form), page.take(), {}, {}, {}};
}

void metrics_pages::add(tools::exposition& to, scrape_worker& from, const scrape& ordered,
                        bool done, bool tells) {
    const bool up = done && !ordered.got.away;
    to.add_up(from.host(), up);
    if (tells && done)
        asked_(from.host(), up, from.away_text());
    subject_list left = ordered.subjects;
    static const std::vector<tools::answer> none;
    for (const tools::answer& each : done ? ordered.got.answers : none) {
        const bool good = each.code >= 0 && each.failure.empty();
        messages_.say_of(from.host(), each, named_);
        if (good)
            to.add(*each.what, from.host(), each.figures);
        to.add_query(*each.what, from.host(), good, each.duration_seconds);
        left.erase(std::remove(left.begin(), left.end(), each.what), left.end());
    }
    for (const tools::subject* each : left)
        to.add_query(*each, from.host(), false, std::nullopt);
}

} // namespace exporter
