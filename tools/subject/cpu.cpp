// Usage of every CPU.
#include "board.h"
#include "subject.h"

#include <algorithm>

namespace tools {
namespace {

constexpr unsigned ticks_per_second = 100; // of the clock that the kernel's table counts in

// "all" for the total, which the table calls "cpu", and the number of each CPU.
std::string cpu_name(const std::string& in_table) {
    return in_table == "cpu" ? "all" : in_table.substr(3);
}

bool is_chosen(const selection& chosen, const std::string& cpu) {
    if (chosen.cpus.empty() || (chosen.every_cpu && cpu != "all"))
        return true;
    return std::find(chosen.cpus.begin(), chosen.cpus.end(), cpu) != chosen.cpus.end();
}

int ask(board& server, const selection& chosen, sample& into) {
    const int code = server.cpus.get_cpu_usage(nullptr);
    const auto& table = server.cpus.cpu_parser->last_stats;
    if (code < 0 || !table)
        return code;
    constexpr int longest_line = 216; // a name and ten counters of 20 digits
    if (server.connection->get_recv_data()->msg_len > answer_payload_max - longest_line)
        into.notes.emplace_back("the table of CPUs fills its answer: CPUs may be missing");
    for (const auto& each : *table)
        if (const std::string name = cpu_name(each->cpu); is_chosen(chosen, name))
            into.add(name, each->user, each->nice, each->system, each->idle, each->iowait,
                     each->irq, each->softirq, each->steal, each->guest, each->guest_nice)
                .is_total = name == "all";
    miss_cpus("cpu", chosen, into);
    return code;
}

field mode_counter(const char* name, const char* help, const char* mode) {
    return counter(name, unit::seconds, help)
        .counted_in(ticks_per_second)
        .share_of("cpu_seconds", "mode", mode);
}

field guest_counter(const char* name, const char* help, const char* mode) {
    return counter(name, unit::seconds, help)
        .counted_in(ticks_per_second)
        .share_of("cpu_guest_seconds", "mode", mode);
}

// A share of the CPU's time. The counters of `minus` are contained in those of `plus`.
field share(const char* name, const char* help, std::vector<const char*> plus,
            std::vector<const char*> minus = {}) {
    return rate(name, unit::percent, help)
        .formed_by({std::move(plus),
                    std::move(minus),
                    {"user_seconds", "nice_seconds", "system_seconds", "idle_seconds",
                     "iowait_seconds", "irq_seconds", "softirq_seconds", "steal_seconds"},
                    100});
}

const subject_registration registered([] {
    subject cpu{
        "cpu",
        "cpu",
        "Usage of every CPU",
        {
            label("cpu", "CPU", "Number of the CPU; all for the total"),
            mode_counter("user_seconds", "Time in user mode, that of guests included", "user"),
            mode_counter("nice_seconds", "Time in user mode at low priority", "nice"),
            mode_counter("system_seconds", "Time in the kernel", "system"),
            mode_counter("idle_seconds", "Time with nothing to do", "idle"),
            mode_counter("iowait_seconds", "Idle time while I/O was outstanding", "iowait"),
            mode_counter("irq_seconds", "Time in hard interrupts", "irq"),
            mode_counter("softirq_seconds", "Time in soft interrupts", "softirq"),
            mode_counter("steal_seconds", "Time that a hypervisor gave to others", "steal"),
            guest_counter("guest_seconds", "Time running guests, part of the user time", "user"),
            guest_counter("guest_nice_seconds",
                          "Time running guests of low priority, part of the nice time", "nice"),
            share("user_percent", "Share of time in user mode, without guests", {"user_seconds"},
                  {"guest_seconds"})
                .column("%user", 2),
            share("nice_percent", "Share of time in user mode at low priority, without guests",
                  {"nice_seconds"}, {"guest_nice_seconds"})
                .column("%nice", 5),
            share("system_percent", "Share of time in the kernel", {"system_seconds"})
                .column("%system", 2),
            share("iowait_percent", "Share of time idle while I/O was outstanding",
                  {"iowait_seconds"})
                .column("%iowait", 3),
            share("irq_percent", "Share of time in hard interrupts", {"irq_seconds"})
                .column("%irq", 6),
            share("softirq_percent", "Share of time in soft interrupts", {"softirq_seconds"})
                .column("%soft", 6),
            share("steal_percent", "Share of time that a hypervisor gave to others",
                  {"steal_seconds"})
                .column("%steal", 5),
            share("guest_percent", "Share of time running guests",
                  {"guest_seconds", "guest_nice_seconds"})
                .column("%guest", 7),
            share("idle_percent", "Share of time with nothing to do", {"idle_seconds"})
                .column("%idle", 4),
            share("usage_percent", "Share of time that is not idle, waiting for I/O included",
                  {"user_seconds", "nice_seconds", "system_seconds", "iowait_seconds",
                   "irq_seconds", "softirq_seconds", "steal_seconds"})
                .column("%usage"),
        },
        [](const selection& chosen) -> asker {
            return [chosen](board& server, sample& into) { return ask(server, chosen, into); };
        }};
    cpu.library_report = [](board& server, std::ostream& out) {
        return server.cpus.get_cpu_usage(&out);
    };
    cpu.place = 10;
    cpu.summary_rows = 1;
    return cpu;
}());

} // namespace
} // namespace tools
