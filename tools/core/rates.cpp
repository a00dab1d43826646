// Comparing samples.
#include "rates.h"

#include <algorithm>
#include <cmath>

namespace tools {

namespace {
// A counter's value; counters are integers, or numbers where the library made them so.
std::optional<double> number_of(const value& v) {
    if (const auto* natural = std::get_if<std::uint64_t>(&v))
        return static_cast<double>(*natural);
    if (const auto* integer = std::get_if<std::int64_t>(&v))
        return static_cast<double>(*integer);
    if (const auto* number = std::get_if<double>(&v))
        return *number;
    return std::nullopt;
}

// The difference of two integers is exact before it becomes a double.
std::optional<double> difference(const value& before, const value& now) {
    const auto* from = std::get_if<std::uint64_t>(&before);
    const auto* to = std::get_if<std::uint64_t>(&now);
    if (from != nullptr && to != nullptr)
        return *to >= *from ? static_cast<double>(*to - *from) : -static_cast<double>(*from - *to);
    const auto first = number_of(before);
    const auto second = number_of(now);
    return first && second ? std::optional(*second - *first) : std::nullopt;
}

value quotient(double factor, double growth, double divisor) {
    return divisor > 0 ? to_value(growth / divisor * factor) : value();
}
} // namespace

rate_former::rate_former(const subject& what) : what_(what), given_(what.fields.size()) {
    for (std::size_t i = 0; i < what.fields.size(); ++i) {
        const field& each = what.fields[i];
        if (each.what == kind::label)
            labels_.push_back(i);
        if (each.what == kind::counter)
            counters_.push_back(i);
        if (each.what != kind::rate)
            continue;
        given_ = std::min(given_, i);
        const auto resolve = [&what](const std::vector<const char*>& names) {
            std::vector<std::size_t> places;
            for (const char* name : names)
                places.push_back(what.index_of(name));
            return places;
        };
        const auto per_unit = [&what](const std::vector<std::size_t>& places) {
            return places.empty() ? 1.0 : static_cast<double>(what.fields[places[0]].per_unit);
        };
        plan how{resolve(each.formed.plus),
                 resolve(each.formed.minus),
                 resolve(each.formed.over),
                 each.formed.factor,
                 0,
                 0};
        how.per_unit = per_unit(how.plus);
        how.over_per_unit = per_unit(how.over);
        plans_.push_back(std::move(how));
    }
}

std::optional<double> rate_former::compare(sample& now) {
    std::optional<double> elapsed;
    if (compares_)
        elapsed = now.seconds - before_.seconds;
    for (std::size_t i = 0; i < now.rows.size(); ++i) {
        row& r = now.rows[i];
        r.values.resize(given_);
        const row* before = elapsed ? partner_of(r, i) : nullptr;
        totals* sum = elapsed ? &totals_of(r) : nullptr;
        if (sum != nullptr)
            add_gauges(r, *sum);
        for (std::size_t p = 0; p < plans_.size(); ++p) {
            const ratio formed =
                before == nullptr ? ratio{} : compare_rows(plans_[p], *before, r, *elapsed);
            r.values.push_back(quotient(plans_[p].factor, formed.growth, formed.divisor));
            if (formed.divisor > 0) {
                sum->rates[p].growth += formed.growth;
                sum->rates[p].divisor += formed.divisor;
            }
        }
    }
    averaged_ += elapsed.has_value();
    before_ = now;
    compares_ = true;
    index_.clear();
    return elapsed;
}

void rate_former::forget() {
    compares_ = false;
    before_ = {};
    index_.clear();
}

std::string rate_former::key_of(const row& r) const {
    std::string key;
    for (const std::size_t i : labels_) {
        if (const auto* text = std::get_if<std::string>(&r.values[i]))
            key += *text;
        else if (const auto number = number_of(r.values[i]))
            key += std::to_string(*number);
        key += '\0';
    }
    return key + std::to_string(r.incarnation);
}

// Rows mostly stay where they were, so the one at the same position is looked at first.
const row* rate_former::partner_of(const row& r, std::size_t position) {
    if (position < before_.rows.size()) {
        const row& candidate = before_.rows[position];
        if (candidate.incarnation == r.incarnation &&
            std::all_of(labels_.begin(), labels_.end(),
                        [&](std::size_t i) { return candidate.values[i] == r.values[i]; }))
            return &candidate;
    }
    if (index_.empty())
        for (const row& each : before_.rows)
            index_.emplace(key_of(each), &each);
    const auto found = index_.find(key_of(r));
    return found == index_.end() ? nullptr : found->second;
}

// The growth of a counter that was set back is unknown. A part of the divisor may run back a
// little, as the kernel's idle times sometimes do, so only the sum of its parts must have grown.
rate_former::ratio rate_former::compare_rows(const plan& how, const row& before, const row& now,
                                             double seconds) const {
    ratio formed;
    for (const auto* counters : {&how.plus, &how.minus}) {
        for (const std::size_t i : *counters) {
            const auto grown = difference(before.values[i], now.values[i]);
            if (!grown || *grown < 0)
                return {};
            formed.growth += (counters == &how.plus ? *grown : -*grown) / how.per_unit;
        }
    }
    if (how.over.empty()) {
        // Within less than a tick a counter of ticks grows by 0 or by 1, and neither is a rate.
        const double resolution = how.per_unit > 1 ? 1 / how.per_unit : 0;
        formed.divisor = seconds >= resolution ? seconds : 0;
        return formed;
    }
    for (const std::size_t i : how.over) {
        const auto grown = difference(before.values[i], now.values[i]);
        if (!grown)
            return {};
        formed.divisor += *grown / how.over_per_unit;
    }
    return formed;
}

rate_former::totals& rate_former::totals_of(const row& r) {
    const auto [place, is_new] = places_.emplace(key_of(r), totals_.size());
    if (is_new)
        totals_.push_back({r, std::vector<ratio>(plans_.size()), std::vector<double>(given_),
                           std::vector<std::size_t>(given_)});
    return totals_[place->second];
}

void rate_former::add_gauges(const row& r, totals& sum) const {
    for (std::size_t i = 0; i < given_; ++i) {
        const auto number = number_of(r.values[i]);
        if (what_.fields[i].what != kind::gauge || !number)
            continue;
        const bool integer = !std::holds_alternative<double>(r.values[i]);
        sum.gauges[i] += integer ? *number / what_.fields[i].per_unit : *number;
        ++sum.counts[i];
    }
}

// A gauge that never changed stays an integer, so that a priority of 20 is not shown as 20.00.
value rate_former::mean_of(const totals& sum, std::size_t i) const {
    if (sum.counts[i] == 0)
        return unknown;
    const double mean = sum.gauges[i] / static_cast<double>(sum.counts[i]);
    const auto first = number_of(sum.first.values[i]);
    const bool same = first && *first == mean * what_.fields[i].per_unit;
    return same ? sum.first.values[i] : value(mean);
}

sample rate_former::average() const {
    sample mean;
    mean.time = before_.time;
    mean.seconds = before_.seconds;
    for (const totals& each : totals_) {
        row r = each.first;
        r.values.resize(given_);
        for (std::size_t i = 0; i < given_; ++i) {
            if (what_.fields[i].what == kind::counter)
                r.values[i] = unknown;
            else if (what_.fields[i].what == kind::gauge)
                r.values[i] = mean_of(each, i);
        }
        for (std::size_t p = 0; p < plans_.size(); ++p)
            r.values.push_back(
                quotient(plans_[p].factor, each.rates[p].growth, each.rates[p].divisor));
        mean.rows.push_back(std::move(r));
    }
    return mean;
}

} // namespace tools
