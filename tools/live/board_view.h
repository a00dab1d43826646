// What the live screen keeps of one board: the latest sample of each subject, and the past of some
// figures.
#ifndef MONCL_TOOLS_LIVE_BOARD_VIEW_H
#define MONCL_TOOLS_LIVE_BOARD_VIEW_H

#include "history.h"
#include "output.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tools::live {

/// The latest sample of one subject.
struct latest_sample {
    const subject* what;
    sample figures;

    /// The value of the field @p field_name of row @p at, in the field's unit; nothing if it is
    /// unknown.
    std::optional<double> number(std::size_t at, std::string_view field_name) const;
    /// The value of the field @p field_name of row @p at, as a table shows it.
    std::string text(std::size_t at, std::string_view field_name) const;
    /// The sum of a field over all rows, those left out that are sums themselves; nothing if none
    /// is known.
    std::optional<double> sum(std::string_view field_name) const;
};

/// One graph of a board.
struct graph {
    const char* title;
    bool is_percent; ///< its scale ends at 100; otherwise it is in bytes per second
    history values;
};

/// One board.
class board_view {
public:
    using clock = std::chrono::steady_clock;

    explicit board_view(std::string host);

    /// Takes in one sample.
    void take(const shown_sample& each);
    /// Ends a report: the graphs move on.
    void end_report(bool away, clock::time_point now);
    /// The latest sample of the subject @p name; null if there is none with rows.
    const latest_sample* find(std::string_view name) const;

    std::string host;
    bool away = false;
    clock::time_point last_answer;              ///< of any query
    std::chrono::system_clock::time_point time; ///< of the latest sample
    graph cpu{"CPU", true, {}};
    graph network{"Net", false, {}};
    graph disk{"Disk", false, {}};
    graph accelerator{"NNU", true, {}};

private:
    std::map<std::string, latest_sample, std::less<>> samples_; // by subject
};

} // namespace tools::live

#endif
