// Tables for people: numbers to the right, a heading once a screenful, "-" for what is unknown.
#include "columns.h"
#include "figure_text.h"
#include "output.h"
#include "safe_text.h"

#include <algorithm>
#include <map>
#include <utility>

namespace tools {
namespace {

class table : public output {
public:
    table(const output_options& options, writer& to) : options_(options), to_(to) {}

    void show(const shown_sample& each) override {
        // No heading without rows where a message has given the reason already.
        if (each.figures.rows.empty() &&
            (options_.summary || each.figures.ended || !each.figures.faults.empty()))
            return;
        block(each, options_.time_column ? local_text(each.figures.time) : std::string());
    }

    void average(const shown_sample& mean, std::size_t) override {
        averaging_ = true;
        block(mean, "Average:");
    }

private:
    void block(const shown_sample& each, const std::string& first) {
        const std::vector<std::size_t> rows = rows_to_show(each);
        std::vector<text_column> columns = all_columns(each, rows, first);
        widen(columns, widths_[{&each.what, averaging_}]);
        if (options_.columns > 0)
            drop_columns(columns, options_.columns);
        begin_block(each.what, columns, rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i)
            add_text(row_line(columns, i));
        if (rows.size() < each.figures.rows.size())
            add_text("+" + std::to_string(each.figures.rows.size() - rows.size()) + " more");
    }

    // The positions of the rows to show, in order.
    std::vector<std::size_t> rows_to_show(const shown_sample& each) const {
        std::vector<std::size_t> order = order_of(each.what, each.figures, each.what.order_by);
        if (!options_.summary)
            return order;
        // The page without a subject has few rows, so rows that are all 0 come last and are left
        // out.
        const auto in_use = std::stable_partition(
            order.begin(), order.end(), [&](std::size_t i) { return is_in_use(each, i); });
        if (in_use != order.begin())
            order.erase(in_use, order.end());
        order.resize(std::min(order.size(), each.what.summary_rows));
        return order;
    }

    // Whether any figure of a row is other than 0.
    static bool is_in_use(const shown_sample& each, std::size_t at) {
        const row& r = each.figures.rows[at];
        for (std::size_t i = 0; i < r.values.size(); ++i) {
            const field& f = each.what.fields[i];
            const bool figure = f.what != kind::label && f.what != kind::text;
            if (figure && number_in_unit(f, r.values[i]).value_or(0) != 0)
                return true;
        }
        return false;
    }

    // The time or what stands in its place, the host, and the columns of the subject.
    std::vector<text_column> all_columns(const shown_sample& each,
                                         const std::vector<std::size_t>& rows,
                                         const std::string& first) const {
        // An average has no counters.
        std::vector<text_column> columns = columns_of(each.what, each.figures, rows, !averaging_);
        if (options_.sources > 1)
            columns.insert(columns.begin(),
                           text_column::of("Host", safe_text(each.host), rows.size()));
        if (!first.empty())
            columns.insert(columns.begin(),
                           text_column::of(averaging_ ? "" : "Time", first, rows.size()));
        return columns;
    }

    void begin_block(const subject& what, const std::vector<text_column>& columns,
                     std::size_t rows) {
        std::string left_out;
        for (const text_column& each : columns)
            if (each.dropped)
                left_out += (left_out.empty() ? "" : ", ") + each.heading;
        const bool other = latest_ != &what || std::exchange(averaged_, averaging_) != averaging_ ||
                           left_out != latest_left_out_;
        const bool screenful =
            options_.lines > 0 && lines_since_heading_ + rows + 1 > options_.lines;
        if (latest_ != nullptr && (other || screenful || rows > 1))
            add_text("");
        if (!other && !screenful)
            return;
        latest_ = &what;
        latest_left_out_ = left_out;
        lines_since_heading_ = 0;
        const std::string heading = heading_line(columns);
        add_text(options_.colour ? "\033[1m" + heading + "\033[0m" : heading);
        if (!left_out.empty())
            add_text("(no room for " + left_out + ")");
    }

    void add_text(const std::string& text) {
        to_.add(text);
        to_.add("\n");
        ++lines_since_heading_;
    }

    output_options options_;
    writer& to_;
    // By subject, and of its averages. They never shrink, so that lines stay below each other.
    std::map<std::pair<const subject*, bool>, std::vector<std::size_t>> widths_;
    const subject* latest_ = nullptr; // whose heading stands above
    std::string latest_left_out_;     // the columns that this has no room for
    std::size_t lines_since_heading_ = 0;
    bool averaging_ = false;
    bool averaged_ = false; // the heading above is an average's
};

std::unique_ptr<output> make(const output_options& options, writer& to) {
    return std::make_unique<table>(options, to);
}

const output_registration registered({"table", "Tables for people", make});

} // namespace
} // namespace tools
