// moncl names: by what names the rows of subjects can be chosen, for shells that complete words.
#include "library_output.h"
#include "program.h"

#include <cstring>
#include <set>
#include <stdexcept>
#include <unistd.h>

namespace tools {
namespace {

// Subjects that choose their rows themselves know them by their first label and by the text "name".
bool is_name(const subject& what, std::size_t field) {
    const std::string_view name = what.fields[field].name;
    return what.selects_names ? field == 0 || name == "name"
                              : what.fields[field].what == kind::label;
}

// Devices that share an interrupt stand in one text, as "eth0, uart0".
void add_names(const std::string& text, std::set<std::string>& names) {
    constexpr std::string_view between = ", ";
    std::size_t start = 0;
    for (std::size_t end = 0; end != text.npos; start = end + between.size()) {
        end = text.find(between, start);
        if (end != start && start < text.size())
            names.insert(text.substr(start, end == text.npos ? end : end - start));
    }
}

std::set<std::string> names_in(const answer& got) {
    std::set<std::string> names;
    for (const row& r : got.figures.rows)
        for (std::size_t i = 0; i < r.values.size(); ++i)
            if (const auto* text = std::get_if<std::string>(&r.values[i]))
                if (is_name(*got.what, i))
                    add_names(*text, names);
    return names;
}

int run(const invocation& called, std::ostream& err) {
    if (called.subjects.empty() || !called.from.empty())
        throw std::runtime_error("names asks a server for the rows of subjects: name one");
    stop_signal stop; // before any thread
    const library_output printed;
    const server_set servers = open_servers(called, err);
    server_plan plan;
    plan.subjects = called.subjects;
    plan.chosen = called.chosen;
    plan.when.count = 1;
    writer to(STDOUT_FILENO);
    bool well = true;
    for (const auto& each : make_sources(servers, plan)) {
        report got;
        each->next(got);
        if (got.away)
            err << "moncl: " << each->away_text() << std::endl;
        well = well && !got.away;
        for (const answer& one : got.answers)
            for (const std::string& name : names_in(one))
                to.add(name + "\n");
    }
    to.flush();
    if (to.error() != 0)
        throw std::runtime_error(std::string("cannot write: ") + std::strerror(to.error()));
    return well ? exit_ok : exit_failed;
}

const command_registration registered({"names",
                                       "SUBJECT[,SUBJECT...] [OPTION...]",
                                       "Lists the names by which rows of a subject can be chosen",
                                       0,
                                       {},
                                       false,
                                       run});

} // namespace
} // namespace tools
