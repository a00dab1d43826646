// The text forms that Prometheus reads: OpenMetrics 1.0 and the older form 0.0.4.
#ifndef MONCL_TOOLS_OPENMETRICS_H
#define MONCL_TOOLS_OPENMETRICS_H

#include "output.h"

#include <map>
#include <optional>
#include <set>
#include <string>

namespace tools {

/// Which form of exposition.
enum class metrics_form { openmetrics, prometheus };

/// The name of a field's lines, and the declarations above them.
struct metric_names {
    std::string family;
    const char* type;
    const char* unit; ///< may be empty
    const char* help;
    std::string line;  ///< starts each line
    std::string share; ///< label by which its lines differ from others of the family; may be empty
};

/// The names of the field @p f; nothing for one that has no lines.
std::optional<metric_names> metric_names_of(const subject& what, const field& f);
/// The metric that has the texts of @p what as labels.
metric_names info_names_of(const subject& what);
/// The metric of whether a server answered.
metric_names up_names();
/// The label of @p host.
std::string host_label(const std::string& host);
/// The labels of @p r, such as `host="board",cpu="0"`. @param host left out if it is null
std::string metric_labels(const subject& what, const std::string* host, const row& r);
/// The same with the texts of @p r after them. @return nothing if it has none
std::optional<std::string> info_labels(const subject& what, const std::string& labels,
                                       const row& r);
/// Appends the lines that open a family in OpenMetrics.
void append_family(std::string& to, const metric_names& names);
/// Appends the name, the labels in braces and a blank.
void append_line_start(std::string& to, const std::string& name, const std::string& labels,
                       const std::string& share);
/// Appends @p v, which is a number, in the metric's unit.
void append_metric_value(std::string& to, const field& f, const value& v);

/// Gathers the metrics of one scrape. Values are in base units, so percents become ratios. Rates
/// are omitted, because Prometheus forms its own. An unknown value has no line. Of rows with equal
/// labels only the first is kept.
class exposition {
public:
    /// @param with_host label all rows with their host
    exposition(metrics_form form, bool with_host) : form_(form), with_host_(with_host) {}

    /// Adds the figures of one sample.
    void add(const subject& what, const std::string& host, const sample& figures);
    /// Adds whether a server answered.
    void add_up(const std::string& host, bool up);
    /// Adds what became of the query for @p what.
    /// @param duration_seconds nothing if none was sent
    void add_query(const subject& what, const std::string& host, bool answered,
                   std::optional<double> duration_seconds);
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
        std::string label; // by which it differs from others of its family; may be empty
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
