// The text forms that Prometheus reads: OpenMetrics 1.0 and the older form 0.0.4.
#ifndef MONCL_TOOLS_OPENMETRICS_H
#define MONCL_TOOLS_OPENMETRICS_H

#include "output.h"

#include <map>
#include <set>
#include <string>

namespace tools {

/// Which form of exposition.
enum class metrics_form { openmetrics, prometheus };

/// Gathers the metrics of one scrape. Base units: percents become ratios. Rates are left out, for
/// Prometheus forms its own; what is unknown has no line; of rows with equal labels the first
/// counts.
class exposition {
public:
    /// @param with_host label all rows with their host
    exposition(metrics_form form, bool with_host) : form_(form), with_host_(with_host) {}

    /// Adds the figures of one sample.
    void add(const subject& what, const std::string& host, const sample& figures);
    /// Adds whether a server answered.
    void add_up(const std::string& host, bool up);
    /// The exposition of all that was added, from `# HELP` to `# EOF`; then it is empty again.
    std::string take();

private:
    struct family {
        std::string help;
        const char* type = "";
        const char* unit = "";
        std::string lines;
    };
    // Where a field's lines go; null for fields that have none.
    struct metric {
        family* to = nullptr;
        std::string name;  // of its lines
        std::string label; // that tells it from others of its family; may be empty
    };

    const std::vector<metric>& metrics_of(const subject& what);
    void add_row(const subject& what, const std::string& labels, const row& r);
    void add_info(const subject& what, const std::string& labels, const row& r);
    family& family_of(const std::string& name, const char* type, const char* unit,
                      const char* help);

    metrics_form form_;
    bool with_host_;
    std::map<std::string, family> families_;
    std::map<const subject*, std::vector<metric>> metrics_; // into `families_`
    std::set<std::string> rows_seen_;                       // subject and labels
};

} // namespace tools

#endif
