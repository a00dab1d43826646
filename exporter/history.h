// The samples of the last minutes, in memory.
#ifndef MONCL_EXPORTER_HISTORY_H
#define MONCL_EXPORTER_HISTORY_H

#include "subject.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace exporter {

using time_point = std::chrono::system_clock::time_point;

/// One sample as a line of JSON, without its end.
struct kept_sample {
    time_point time;
    std::shared_ptr<const std::string> line;
};

/// Which samples are wanted.
struct sample_query {
    std::vector<const tools::subject*> subjects;
    std::string host; ///< empty: all
    time_point since;
    time_point until = time_point::max();
    std::size_t points = 1; ///< most samples of each host and subject
};

/// Samples of each host and subject, in the order of time.
using sample_series =
    std::map<std::pair<std::string, const tools::subject*>, std::vector<kept_sample>>;

/// Leaves at most @p most of @p samples, evenly spaced in time, the last one among them.
/// @return whether some were left out
bool thin(std::vector<kept_sample>& samples, std::size_t most);

/// All samples of @p series in the order of time.
std::vector<kept_sample> in_order(const sample_series& series);

/// Keeps samples for a time, and within a number of bytes: the oldest go first. From any thread.
class history {
public:
    history(std::chrono::seconds longest, std::size_t most_bytes)
        : longest_(longest), most_bytes_(most_bytes) {}

    void add(const std::string& host, const tools::subject& what, kept_sample one);
    sample_series find(const sample_query& wanted) const;
    /// The newest sample of each host and subject.
    std::vector<kept_sample> newest(const sample_query& wanted) const;

private:
    using key = std::pair<std::string, const tools::subject*>;

    void drop_oldest();
    static bool is_wanted(const sample_query& wanted, const key& of);

    const std::chrono::seconds longest_;
    const std::size_t most_bytes_;
    mutable std::mutex lock_;
    std::map<key, std::deque<kept_sample>> samples_;
    std::deque<std::deque<kept_sample>*> order_; // of all samples, by age
    std::size_t bytes_ = 0;
};

} // namespace exporter

#endif
