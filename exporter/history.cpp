// Keeping and finding samples.
#include "history.h"

#include <algorithm>

namespace exporter {

namespace {
// The memory that a sample takes besides its text.
constexpr std::size_t bytes_beside = 128;

bool is_earlier(const kept_sample& a, const kept_sample& b) {
    return a.time < b.time;
}
} // namespace

bool thin(std::vector<kept_sample>& samples, std::size_t most) {
    if (samples.size() <= most)
        return false;
    const auto width = (samples.back().time - samples.front().time) / static_cast<long>(most) +
                       time_point::duration(1);
    std::vector<kept_sample> left;
    time_point::rep last_part = -1;
    for (kept_sample& each : samples) { // the last one of each part of the time
        const auto part = (each.time - samples.front().time) / width;
        if (part == last_part)
            left.pop_back();
        left.push_back(each);
        last_part = part;
    }
    samples = std::move(left);
    return true;
}

std::vector<kept_sample> in_order(const sample_series& series) {
    std::vector<kept_sample> all;
    for (const auto& each : series)
        all.insert(all.end(), each.second.begin(), each.second.end());
    std::stable_sort(all.begin(), all.end(), is_earlier);
    return all;
}

void history::add(const std::string& host, const tools::subject& what, kept_sample one) {
    const std::lock_guard<std::mutex> guard(lock_);
    bytes_ += one.line->size() + bytes_beside;
    const time_point now = one.time;
    std::deque<kept_sample>& series = samples_[{host, &what}];
    series.push_back(std::move(one));
    order_.push_back(&series);
    while (!order_.empty() &&
           (bytes_ > most_bytes_ || order_.front()->front().time < now - longest_))
        drop_oldest();
}

void history::drop_oldest() {
    std::deque<kept_sample>& series = *order_.front();
    bytes_ -= series.front().line->size() + bytes_beside;
    series.pop_front();
    order_.pop_front();
}

bool history::is_wanted(const sample_query& wanted, const key& of) {
    return (wanted.host.empty() || wanted.host == of.first) &&
           std::find(wanted.subjects.begin(), wanted.subjects.end(), of.second) !=
               wanted.subjects.end();
}

sample_series history::find(const sample_query& wanted) const {
    sample_series found;
    const std::lock_guard<std::mutex> guard(lock_);
    for (const auto& [of, series] : samples_) {
        if (!is_wanted(wanted, of))
            continue;
        for (const kept_sample& each : series)
            if (each.time >= wanted.since && each.time <= wanted.until)
                found[of].push_back(each);
    }
    return found;
}

std::vector<kept_sample> history::newest(const sample_query& wanted) const {
    std::vector<kept_sample> found;
    const std::lock_guard<std::mutex> guard(lock_);
    for (const auto& [of, series] : samples_)
        if (is_wanted(wanted, of) && !series.empty() && series.back().time >= wanted.since)
            found.push_back(series.back());
    std::stable_sort(found.begin(), found.end(), is_earlier);
    return found;
}

} // namespace exporter
