// When a command reports: once, or at a steady interval.
#ifndef MONCL_TOOLS_SCHEDULE_H
#define MONCL_TOOLS_SCHEDULE_H

#include <chrono>

namespace tools {

/// INTERVAL and COUNT of the command line.
struct schedule {
    double interval = 0; ///< seconds; 0: none given, one report
    long count = 0;      ///< reports; 0: one without an interval, else until stopped

    /// Number of reports, 0 for no end.
    long reports() const { return count > 0 ? count : interval > 0 ? 0 : 1; }
    /// Time between two reports, and before the first one if that needs two samples.
    std::chrono::nanoseconds period() const {
        return std::chrono::nanoseconds(interval > 0 ? static_cast<long long>(interval * 1e9)
                                                     : 1000000000LL);
    }
};

/// Evenly spaced points of the monotonic clock. A point that has passed is skipped, not made up
/// for, so that later ones keep their place.
class ticker {
public:
    using clock = std::chrono::steady_clock;

    ticker(clock::time_point start, std::chrono::nanoseconds period)
        : start_(start), period_(period) {}

    /// The next point after the one given out before, and not before @p now.
    clock::time_point next(clock::time_point now) {
        const auto passed = (now - start_ + period_ - std::chrono::nanoseconds(1)) / period_;
        index_ = index_ + 1 > passed ? index_ + 1 : passed;
        return start_ + index_ * period_;
    }

private:
    clock::time_point start_;
    std::chrono::nanoseconds period_;
    long long index_ = 0;
};

} // namespace tools

#endif
