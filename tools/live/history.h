// The latest values of one figure, for a graph.
#ifndef MONCL_TOOLS_LIVE_HISTORY_H
#define MONCL_TOOLS_LIVE_HISTORY_H

#include <cstddef>
#include <deque>
#include <optional>

namespace tools::live {

/// Keeps as many values as the widest graph shows.
class history {
public:
    void add(std::optional<double> latest) {
        values_.push_back(latest);
        if (values_.size() > most)
            values_.pop_front();
    }
    /// The value @p age reports ago, 0 for the latest; nothing if it is unknown.
    std::optional<double> at(std::size_t age) const {
        return age < values_.size() ? values_[values_.size() - 1 - age] : std::nullopt;
    }
    /// The greatest of the latest @p count known values; 0 if there are none.
    double greatest(std::size_t count) const {
        double most_so_far = 0;
        for (std::size_t age = 0; age < count && age < values_.size(); ++age)
            if (const auto v = at(age); v && *v > most_so_far)
                most_so_far = *v;
        return most_so_far;
    }

private:
    static constexpr std::size_t most = 1024;
    std::deque<std::optional<double>> values_;
};

} // namespace tools::live

#endif
