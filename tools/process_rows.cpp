// Rows of the table of busiest processes.
#include "process_rows.h"

#include <algorithm>
#include <cmath>

namespace tools {

std::vector<pid_msg> sorted_rows(const top_pid_info& table) {
    const pid_msg* const first = table.send_pid_info;
    std::vector<pid_msg> rows(first, first + std::clamp(table.pid_num, 0, top_pid_rows));
    // What came over the wire may be no number at all.
    auto usage = [](const pid_msg& row) {
        return std::isnan(row.process_usage) ? -1.0F : row.process_usage;
    };
    std::stable_sort(rows.begin(), rows.end(),
                     [usage](const pid_msg& a, const pid_msg& b) { return usage(a) > usage(b); });
    return rows;
}

char printable(char c) {
    return c >= ' ' && c <= '~' ? c : '?';
}

std::string printable_name(const pid_msg& row) {
    std::string comm(field_text(row.comm));
    std::transform(comm.begin(), comm.end(), comm.begin(), printable);
    return comm;
}

unsigned long resident_bytes(const pid_msg& row) {
    const std::int64_t rss = row.rss;
    return static_cast<unsigned long>(std::max<std::int64_t>(rss, 0));
}

} // namespace tools
