// Writing metrics.
#include "openmetrics.h"

#include "figure_text.h"
#include "safe_text.h"

namespace tools {

namespace {
// A unit as the end of a metric's name; empty for counts.
const char* unit_name(unit in) {
    switch (in) {
    case unit::bytes:
        return "bytes";
    case unit::percent:
        return "ratio";
    case unit::celsius:
        return "celsius";
    case unit::hertz:
        return "hertz";
    case unit::seconds:
        return "seconds";
    default:
        return "";
    }
}

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string metric_name(const subject& what, const field& f) {
    std::string name = "moncl_";
    if (*f.family != '\0')
        return name + f.family;
    name += what.family;
    name += '_';
    name += f.name;
    constexpr std::string_view percent = "percent";
    if (f.in == unit::percent && ends_with(name, percent))
        name.replace(name.size() - percent.size(), percent.size(), "ratio");
    return name;
}

void append_escaped(std::string& to, std::string_view text, bool quotes) {
    for (const char c : text) {
        if (c == '\\' || (quotes && c == '"'))
            to += '\\';
        to += c == '\n' ? "\\n" : std::string(1, c);
    }
}

void append_label(std::string& to, const char* name, std::string_view text) {
    if (!to.empty())
        to += ',';
    to += name;
    to += "=\"";
    append_escaped(to, valid_utf8(text), true);
    to += '"';
}

// The name, the labels in braces and a blank.
void begin_line(std::string& to, const std::string& name, const std::string& labels,
                const std::string& label) {
    to += name;
    if (!labels.empty() || !label.empty()) {
        to += '{';
        to += labels;
        if (!labels.empty() && !label.empty())
            to += ',';
        to += label;
        to += '}';
    }
    to += ' ';
}
} // namespace

void exposition::add(const subject& what, const std::string& host, const sample& figures) {
    for (const row& r : figures.rows) {
        if (r.is_total && figures.rows.size() > 1)
            continue;
        std::string labels;
        if (with_host_)
            append_label(labels, "host", host);
        for (std::size_t i = 0; i < r.values.size(); ++i) {
            if (what.fields[i].what != kind::label || !is_known(r.values[i]))
                continue;
            std::string text;
            append_plain(text, what.fields[i], r.values[i]);
            append_label(labels, what.fields[i].name, text);
        }
        if (rows_seen_.insert(what.name + (' ' + labels)).second)
            add_row(what, labels, r);
    }
}

const std::vector<exposition::metric>& exposition::metrics_of(const subject& what) {
    std::vector<metric>& metrics = metrics_[&what];
    if (!metrics.empty())
        return metrics;
    metrics.resize(what.fields.size());
    for (std::size_t i = 0; i < metrics.size(); ++i) {
        const field& f = what.fields[i];
        const bool counts = f.what == kind::counter;
        if (!counts && f.what != kind::gauge)
            continue;
        const bool splits = *f.split_label != '\0';
        const std::string name = metric_name(what, f);
        metrics[i].to = &family_of(name, counts ? "counter" : "gauge", unit_name(f.in),
                                   splits ? what.help : f.help);
        metrics[i].name = counts ? name + "_total" : name;
        if (splits)
            append_label(metrics[i].label, f.split_label, f.split_value);
    }
    return metrics;
}

void exposition::add_row(const subject& what, const std::string& labels, const row& r) {
    add_info(what, labels, r);
    const std::vector<metric>& metrics = metrics_of(what);
    for (std::size_t i = 0; i < metrics.size(); ++i) {
        const field& f = what.fields[i];
        if (metrics[i].to == nullptr || !is_known(r.values[i]) ||
            std::holds_alternative<std::string>(r.values[i]))
            continue;
        std::string& lines = metrics[i].to->lines;
        begin_line(lines, metrics[i].name, labels, metrics[i].label);
        if (f.in == unit::percent)
            append_number(lines, *number_in_unit(f, r.values[i]) / 100);
        else
            append_plain(lines, f, r.values[i]);
        lines += '\n';
    }
}

// Texts describe a row: they are the labels of a metric that is always 1.
void exposition::add_info(const subject& what, const std::string& labels, const row& r) {
    std::string described = labels;
    bool any = false;
    for (std::size_t i = 0; i < r.values.size(); ++i) {
        const auto* text = std::get_if<std::string>(&r.values[i]);
        if (what.fields[i].what != kind::text || text == nullptr)
            continue;
        append_label(described, what.fields[i].name, *text);
        any = true;
    }
    if (!any)
        return;
    const std::string name = std::string("moncl_") + what.family;
    std::string& lines = family_of(name, "info", "", what.help).lines;
    begin_line(lines, name + "_info", described, {});
    lines += "1\n";
}

void exposition::add_up(const std::string& host, bool up) {
    std::string labels;
    if (with_host_)
        append_label(labels, "host", host);
    std::string& lines = family_of("moncl_up", "gauge", "", "Whether the server answered").lines;
    begin_line(lines, "moncl_up", labels, {});
    lines += up ? "1\n" : "0\n";
}

exposition::family& exposition::family_of(const std::string& name, const char* type,
                                          const char* unit, const char* help) {
    family& known = families_[name];
    if (*known.type == '\0') {
        known.type = type;
        known.unit = unit;
        append_escaped(known.help, help, form_ == metrics_form::openmetrics);
    }
    return known;
}

std::string exposition::take() {
    const bool older = form_ == metrics_form::prometheus;
    std::string text;
    for (const auto& [name, each] : families_) {
        if (each.lines.empty())
            continue;
        // The older form knows no suffixes: what it declares is the name of the lines.
        const std::string_view type = each.type;
        std::string declared = name;
        if (older && type == "counter")
            declared += "_total";
        if (older && type == "info")
            declared += "_info";
        text += "# HELP " + declared + " " + each.help + "\n";
        text += "# TYPE " + declared + " " + (older && type == "info" ? "gauge" : each.type) + "\n";
        if (!older && *each.unit != '\0' && ends_with(name, std::string("_") + each.unit))
            text += "# UNIT " + declared + " " + each.unit + "\n";
        text += each.lines;
    }
    if (!older)
        text += "# EOF\n";
    metrics_.clear();
    families_.clear();
    rows_seen_.clear();
    return text;
}

namespace {

/// Writes one exposition for each report, once all servers have given theirs.
class metrics_output : public output {
public:
    metrics_output(metrics_form form, const output_options& options, writer& to)
        : form_(form), sources_(options.sources), to_(to) {}

    bool wants_rates() const override { return false; }

    void show(const shown_sample& each) override {
        pending_[each.host].push_back({&each.what, each.figures});
    }

    void end_report(const std::string& host, long number, bool away) override {
        round& of =
            rounds_.try_emplace(number, round{exposition(form_, sources_ > 1), 0}).first->second;
        for (const auto& [what, figures] : pending_[host])
            of.gathered.add(*what, host, figures);
        pending_[host].clear();
        of.gathered.add_up(host, !away);
        if (++of.hosts == sources_) {
            to_.add(of.gathered.take());
            rounds_.erase(number);
        }
    }

    void finish() override {
        for (auto& each : rounds_)
            to_.add(each.second.gathered.take());
    }

private:
    struct round {
        exposition gathered;
        std::size_t hosts;
    };

    metrics_form form_;
    std::size_t sources_;
    writer& to_;
    std::map<std::string, std::vector<std::pair<const subject*, sample>>> pending_; // by host
    std::map<long, round> rounds_; // by the reports' number
};

template<metrics_form form>
std::unique_ptr<output> make(const output_options& options, writer& to) {
    return std::make_unique<metrics_output>(form, options, to);
}

const output_registration openmetrics({"openmetrics", "OpenMetrics, an exposition for each report",
                                       make<metrics_form::openmetrics>});
const output_registration prometheus({"prometheus", "The text form 0.0.4 of Prometheus",
                                      make<metrics_form::prometheus>});

} // namespace
} // namespace tools
