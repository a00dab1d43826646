// Interrupts by number and CPU.
#include "board.h"
#include "request_numbers.h"
#include "subject.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <set>
#include <sstream>
#include <string_view>

namespace tools {
namespace {

/// The interrupt table as records. The library's own handler would print it.
struct interrupt_table {
    interrupt_parser decoder;
    std::vector<std::string> cpus; ///< the number of each column's CPU; some may be off-line
    std::string heading;           ///< as the server wrote it
    bool fills_answer = false;
};

std::vector<std::string> read_heading(const std::string& line) {
    std::vector<std::string> cpus;
    std::istringstream words(line);
    for (std::string word; words >> word;)
        if (word.rfind("CPU", 0) == 0)
            cpus.push_back(word.substr(3));
    return cpus;
}

std::string_view without_blanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// What one line of the table is called, and what it belongs to.
struct line_names {
    std::string irq;
    value controller;
    value hardware_number;
    value trigger;
    std::string name;
};

// The error line is the one without counts; interrupt 0 has them.
line_names names_of(const interrupt& line) {
    if (!line.IPI_int_num.empty()) {
        const std::string& word = line.IPI_int_num;
        return {word.substr(0, word.find(':')), unknown, unknown, unknown,
                std::string(without_blanks(line.IPI_int_describe))};
    }
    if (line.int_cnt.empty())
        return {"Err", unknown, unknown, unknown, "Errors"};
    // Some kernels write number and mode as "5-edge".
    const std::string& mode = line.trigger_mode;
    return {std::to_string(line.logic_int_num), line.int_dev, std::to_string(line.hardware_int_num),
            mode.substr(mode.rfind('-', 0) == 0 ? 1 : 0),
            std::string(without_blanks(line.int_name))};
}

bool contains(const std::vector<std::string>& all, std::string_view one) {
    return std::find(all.begin(), all.end(), one) != all.end();
}

// Devices that share a line stand as "eth0, uart0".
bool has_device(std::string_view name, std::string_view wanted) {
    while (!name.empty()) {
        const std::size_t comma = std::min(name.find(','), name.size());
        if (without_blanks(name.substr(0, comma)) == wanted)
            return true;
        name.remove_prefix(std::min(comma + 1, name.size()));
    }
    return false;
}

bool is_called(const line_names& line, const std::string& wanted) {
    return wanted == line.irq || wanted == line.name || has_device(line.name, wanted);
}

void add_line(const interrupt& line, const line_names& names, const interrupt_table& table,
              const selection& chosen, sample& into) {
    const auto add = [&](const std::string& cpu, std::uint64_t count) -> row& {
        return into.add(names.irq, cpu, names.controller, names.hardware_number, names.trigger,
                        names.name, count);
    };
    const std::size_t before = into.rows.size();
    const bool total = chosen.cpus.empty() || contains(chosen.cpus, "all");
    if (total)
        add("all", std::accumulate(line.int_cnt.begin(), line.int_cnt.end(), line.err_cnt));
    for (std::size_t i = 0; i < std::min(table.cpus.size(), line.int_cnt.size()); ++i)
        if (chosen.every_cpu || contains(chosen.cpus, table.cpus[i]))
            add(table.cpus[i], line.int_cnt[i]);
    if (!total)
        return;
    row& sum = into.rows[before];
    sum.is_total = into.rows.size() > before + 1;
    // A CPU that comes on-line adds its counts since boot, so sums over different CPUs must not be
    // compared.
    if (!line.int_cnt.empty())
        sum.incarnation = std::hash<std::string>()(table.heading);
}

// Adds the lines that were asked for by name, or all, and a fault for each name without a line.
void add_lines(const interrupt_table& table, const selection& chosen, sample& into) {
    std::set<std::string> missing(chosen.names.begin(), chosen.names.end());
    for (const auto& line : *table.decoder.interrupts) {
        const line_names names = names_of(*line);
        bool is_chosen = chosen.names.empty();
        for (const std::string& wanted : chosen.names) {
            if (!is_called(names, wanted))
                continue;
            missing.erase(wanted);
            is_chosen = true;
        }
        if (is_chosen)
            add_line(*line, names, table, chosen, into);
    }
    for (const std::string& name : missing)
        into.faults.push_back("irq: the table of interrupts has no " + name);
}

int ask(board& server, const selection& chosen, sample& into) {
    const auto table = std::make_shared<interrupt_table>();
    const int code = server.cpus.get_sys_info(cpu_request::interrupts, table, nullptr);
    if (code < 0)
        return code;
    if (table->fills_answer)
        into.notes.emplace_back("the table of interrupts fills its answer: lines may be missing");
    for (const std::string& cpu : chosen.cpus)
        if (cpu != "all" && !contains(table->cpus, cpu))
            into.faults.push_back("irq: the table of interrupts has no CPU " + cpu);
    if (table->cpus.empty())
        into.notes.emplace_back("the server's table of interrupts names no CPU");
    else
        add_lines(*table, chosen, into);
    return code;
}

} // namespace
} // namespace tools

namespace ns_req_template {

template<>
int request_handler::handle_request(std::shared_ptr<tools::interrupt_table> table) {
    const int r = receive_parts();
    if (r < 0)
        return log_failure("Receive message error with %d\n", r);
    table->fills_answer = joined_len == answer_parts_max * answer_payload_max;
    const std::string text(reinterpret_cast<const char*>(joined_parts.data()));
    table->decoder.interrupts = std::make_unique<std::vector<std::shared_ptr<interrupt>>>();
    table->decoder.parse_int(text);
    table->heading = text.substr(0, text.find('\n'));
    table->cpus = tools::read_heading(table->heading);
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<tools::interrupt_table>, std::ostream&) {}

} // namespace ns_req_template

namespace tools {
namespace {

const subject_registration registered([] {
    subject irq{
        "irq",
        "irq",
        "Interrupts handled, by number and CPU",
        {label("irq", "IRQ",
               "Number of the interrupt; IPI0 and on between processors; Err: errors"),
         label("cpu", "CPU", "Number of the CPU; all for the sum"),
         text("controller", "Interrupt controller").column("Controller", 3),
         text("hardware_number", "The controller's own number").column("HW", 4),
         text("trigger", "How the interrupt is signalled").column("Trigger", 5),
         text("name", "Devices or purpose").column("Name"),
         counter("interrupts", unit::none, "Interrupts handled since boot").column("count", 2),
         rate("interrupts_per_second", unit::per_second, "Interrupts handled in a second")
             .per_second_of("interrupts")
             .column("irq/s")},
        [](const selection& chosen) -> asker {
            return [chosen](board& server, sample& into) { return ask(server, chosen, into); };
        }};
    irq.library_report = [](board& server, std::ostream& out) {
        return server.cpus.get_interrupt(&out);
    };
    irq.order_by = "interrupts_per_second";
    irq.selects_names = true;
    irq.has_many_rows = true;
    irq.place = 60;
    return irq;
}());

} // namespace
} // namespace tools
