// The list of subjects.
#include "subject.h"

#include <algorithm>
#include <deque>
#include <stdexcept>

namespace tools {

namespace {
std::deque<subject>& registered() {
    static std::deque<subject> all; // never moves its elements
    return all;
}

void check(const subject& what) {
    bool rates = false;
    for (const field& each : what.fields) {
        if (rates && each.what != kind::rate)
            throw std::logic_error(std::string(each.name) + " stands after a rate");
        rates = each.what == kind::rate;
        for (const auto* names : {&each.formed.plus, &each.formed.minus, &each.formed.over})
            for (const char* name : *names)
                if (what.fields[what.index_of(name)].what != kind::counter)
                    throw std::logic_error(std::string(name) + " is no counter");
    }
}
} // namespace

std::size_t subject::index_of(std::string_view field_name) const {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const field& each) { return each.name == field_name; });
    if (found == fields.end())
        throw std::logic_error(std::string(name) + " has no field " + std::string(field_name));
    return static_cast<std::size_t>(found - fields.begin());
}

bool subject::has_rates() const {
    return std::any_of(fields.begin(), fields.end(),
                       [](const field& each) { return each.what == kind::rate; });
}

void miss_cpus(const char* subject_name, const selection& chosen, sample& into) {
    for (const std::string& cpu : chosen.cpus)
        if (cpu != "all" && std::none_of(into.rows.begin(), into.rows.end(),
                                         [&](const row& r) { return r.values[0] == value(cpu); }))
            into.faults.push_back(std::string(subject_name) +
                                  ": the server has no figures of CPU " + cpu);
}

const std::vector<const subject*>& all_subjects() {
    static const std::vector<const subject*> sorted = [] {
        std::vector<const subject*> all;
        for (const subject& each : registered())
            all.push_back(&each);
        std::sort(all.begin(), all.end(), [](const subject* a, const subject* b) {
            return std::pair(a->place, std::string_view(a->name)) <
                   std::pair(b->place, std::string_view(b->name));
        });
        return all;
    }();
    return sorted;
}

const subject* find_subject(std::string_view name) {
    for (const subject* each : all_subjects())
        if (each->name == name)
            return each;
    return nullptr;
}

subject_registration::subject_registration(subject what) {
    check(what);
    registered().push_back(std::move(what));
}

} // namespace tools
