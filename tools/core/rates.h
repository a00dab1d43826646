// Forming rates: the one place where two samples of a counter are compared.
//
//     rate_former rates(what);
//     rates.compare(now);        // fills the rates of `now` from the sample before it
//     sample mean = rates.average();
#ifndef MONCL_TOOLS_RATES_H
#define MONCL_TOOLS_RATES_H

#include "subject.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// Forms the rates of one subject of one server, sample by sample. Rows are paired by their labels
/// and their incarnation. A rate is unknown where its row is new, where one of its counters is
/// unknown or was set back, and where less time passed than its counters can resolve.
class rate_former {
public:
    /// @param what outlives this
    explicit rate_former(const subject& what);

    /// Fills the rates of each row of @p now, from it and the sample of the previous call.
    /// @return seconds between the two; nothing for the first
    std::optional<double> compare(sample& now);
    /// Forgets the previous sample: the next one has no rates.
    void forget();

    /// The rows of all samples compared since the first: rates over all of the time they are known
    /// for, means of the gauges, nothing for the counters. Rows stand in the order in which they
    /// were first seen.
    sample average() const;
    /// Number of samples that `average` covers.
    std::size_t averaged() const { return averaged_; }

private:
    // A formula with its names resolved.
    struct plan {
        std::vector<std::size_t> plus;
        std::vector<std::size_t> minus;
        std::vector<std::size_t> over;
        double factor;
        double per_unit;      // of the counters that are added
        double over_per_unit; // of the divisor
    };
    // A rate before its division; without a divisor it is unknown.
    struct ratio {
        double growth = 0;
        double divisor = 0;
    };
    // What the samples so far add up to, for one row.
    struct totals {
        row first;                       // its labels and texts
        std::vector<ratio> rates;        // by plan
        std::vector<double> gauges;      // by field
        std::vector<std::size_t> counts; // of known gauges, by field
    };

    std::string key_of(const row& r) const;
    const row* partner_of(const row& r, std::size_t position);
    ratio compare_rows(const plan& how, const row& before, const row& now, double seconds) const;
    totals& totals_of(const row& r);
    value mean_of(const totals& sum, std::size_t i) const;
    void add_gauges(const row& r, totals& sum) const;

    const subject& what_;
    std::vector<std::size_t> labels_;
    std::vector<std::size_t> counters_;
    std::vector<plan> plans_; // of the rates, which stand last
    std::size_t given_;       // fields before the rates
    sample before_;
    bool compares_ = false;                                // `before_` is a sample
    std::map<std::string, const row*, std::less<>> index_; // of `before_`, made when needed
    std::map<std::string, std::size_t> places_;            // in `totals_`
    std::vector<totals> totals_;
    std::size_t averaged_ = 0;
};

} // namespace tools

#endif
