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

// Prometheus itself labels what it scrapes with `instance`, and would rename a label of that name.
const char* label_name(const field& f) {
    return std::string_view(f.name) == "instance" ? "device" : f.name;
}

// Only a name that ends in its unit may declare it.
void append_unit(std::string& to, const std::string& declared, const std::string& family,
                 const char* unit) {
    if (*unit != '\0' && ends_with(family, std::string("_") + unit))
        to += "# UNIT " + declared + " " + unit + "\n";
}
} // namespace

std::optional<metric_names> metric_names_of(const subject& what, const field& f) {
    const bool counts = f.what == kind::counter;
    if (!counts && f.what != kind::gauge)
        return std::nullopt;
    const bool splits = *f.split_label != '\0';
    metric_names names{metric_name(what, f),
                       counts ? "counter" : "gauge",
                       unit_name(f.in),
                       splits ? what.help : f.help,
                       {},
                       {}};
    names.line = counts ? names.family + "_total" : names.family;
    if (splits)
        append_label(names.share, f.split_label, f.split_value);
    return names;
}

metric_names info_names_of(const subject& what) {
    const std::string name = std::string("moncl_") + what.family;
    return {name, "info", "", what.help, name + "_info", {}};
}

metric_names up_names() {
    return {"moncl_up", "gauge", "", "Whether the server answered", "moncl_up", {}};
}

std::string host_label(const std::string& host) {
    std::string labels;
    append_label(labels, "host", host);
    return labels;
}

std::string metric_labels(const subject& what, const std::string* host, const row& r) {
    std::string labels = host == nullptr ? std::string() : host_label(*host);
    for (std::size_t i = 0; i < r.values.size(); ++i) {
        if (what.fields[i].what != kind::label || !is_known(r.values[i]))
            continue;
        std::string text;
        append_plain(text, what.fields[i], r.values[i]);
        append_label(labels, label_name(what.fields[i]), text);
    }
    return labels;
}

std::optional<std::string> info_labels(const subject& what, const std::string& labels,
                                       const row& r) {
    std::string described = labels;
    bool any = false;
    for (std::size_t i = 0; i < r.values.size(); ++i) {
        const auto* text = std::get_if<std::string>(&r.values[i]);
        if (what.fields[i].what != kind::text || text == nullptr)
            continue;
        append_label(described, what.fields[i].name, *text);
        any = true;
    }
    return any ? std::optional(described) : std::nullopt;
}

void append_family(std::string& to, const metric_names& names) {
    to += "# HELP " + names.family + " ";
    append_escaped(to, names.help, true);
    to += "\n# TYPE " + names.family + " " + names.type + "\n";
    append_unit(to, names.family, names.family, names.unit);
}

void append_line_start(std::string& to, const std::string& name, const std::string& labels,
                       const std::string& share) {
    to += name;
    if (!labels.empty() || !share.empty()) {
        to += '{';
        to += labels;
        if (!labels.empty() && !share.empty())
            to += ',';
        to += share;
        to += '}';
    }
    to += ' ';
}

void append_metric_value(std::string& to, const field& f, const value& v) {
    if (f.in == unit::percent)
        append_number(to, *number_in_unit(f, v) / 100);
    else
        append_plain(to, f, v);
}

void exposition::add(const subject& what, const std::string& host, const sample& figures) {
    for (const row& r : figures.rows) {
        if (r.is_total && figures.rows.size() > 1)
            continue;
        const std::string labels = metric_labels(what, with_host_ ? &host : nullptr, r);
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
        const auto names = metric_names_of(what, what.fields[i]);
        if (!names)
            continue;
        metrics[i].to = &family_of(names->family, names->type, names->unit, names->help);
        metrics[i].name = names->line;
        metrics[i].label = names->share;
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
        append_line_start(lines, metrics[i].name, labels, metrics[i].label);
        append_metric_value(lines, f, r.values[i]);
        lines += '\n';
    }
}

// Texts describe a row, so they become labels of a metric that is always 1.
void exposition::add_info(const subject& what, const std::string& labels, const row& r) {
    const auto described = info_labels(what, labels, r);
    if (!described)
        return;
    const metric_names names = info_names_of(what);
    std::string& lines = family_of(names.family, names.type, names.unit, names.help).lines;
    append_line_start(lines, names.line, *described, {});
    lines += "1\n";
}

void exposition::add_up(const std::string& host, bool up) {
    const metric_names names = up_names();
    std::string& lines = family_of(names.family, names.type, names.unit, names.help).lines;
    append_line_start(lines, names.line, with_host_ ? host_label(host) : std::string(), {});
    lines += up ? "1\n" : "0\n";
}

void exposition::add_query(const subject& what, const std::string& host, bool answered,
                           std::optional<double> duration_seconds) {
    std::string labels = with_host_ ? host_label(host) : std::string();
    append_label(labels, "subject", what.name);
    std::string& success = family_of("moncl_query_success", "gauge", "",
                                     "Whether the query for the subject got figures")
                               .lines;
    append_line_start(success, "moncl_query_success", labels, {});
    success += answered ? "1\n" : "0\n";
    if (!duration_seconds)
        return;
    std::string& duration = family_of("moncl_query_duration_seconds", "gauge", "seconds",
                                      "Duration of the query for the subject")
                                .lines;
    append_line_start(duration, "moncl_query_duration_seconds", labels, {});
    append_number(duration, *duration_seconds);
    duration += '\n';
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
        // The older form has no suffixes, so it declares the name of the lines.
        const std::string_view type = each.type;
        std::string declared = name;
        if (older && type == "counter")
            declared += "_total";
        if (older && type == "info")
            declared += "_info";
        text += "# HELP " + declared + " " + each.help + "\n";
        text += "# TYPE " + declared + " " + (older && type == "info" ? "gauge" : each.type) + "\n";
        if (!older)
            append_unit(text, declared, name, each.unit);
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
