// Hardware and kernel event counters of the whole machine.
#include "board.h"
#include "subject.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <unistd.h>

namespace tools {
namespace {

constexpr std::size_t event_count = 23;
using event_counts = std::array<std::uint64_t, event_count>;
static_assert(sizeof(event_counts) == sizeof(perf_counters));

/// One counter. A machine that lacks a hardware event counts 0 of it.
struct event {
    const char* name;
    const char* help;
    int known_by; ///< if that event counts 0, this one is lacking; -1: it never is
};

// In the order of the fields of perf_counters.
constexpr event events[event_count] = {
    {"cycles", "Cycles of all CPUs", 0},
    {"context_switches", "Context switches", -1},
    {"instructions", "Instructions", 2},
    {"migrations", "Moves of a task to another CPU", -1},
    {"page_faults", "Page faults", -1},
    {"frontend_stall_cycles", "Cycles without an instruction to issue", 5},
    {"backend_stall_cycles", "Cycles in which no instruction could go on", 6},
    {"l1d_misses", "Reads that missed the level 1 data cache", 8},
    {"l1d_loads", "Reads of the level 1 data cache", 8},
    {"l1i_misses", "Reads that missed the level 1 instruction cache", 10},
    {"l1i_loads", "Reads of the level 1 instruction cache", 10},
    {"l2d_accesses", "Accesses to the level 2 cache", 11},
    {"l2d_refills", "Refills of the level 2 cache", 11},
    {"l3d_accesses", "Accesses to the level 3 cache", 13},
    {"l3d_refills", "Refills of the level 3 cache", 13},
    {"llc_misses", "Reads that missed the last level cache", 16},
    {"llc_loads", "Reads of the last level cache", 16},
    {"itlb_misses", "Reads that missed the instruction TLB", 18},
    {"itlb_loads", "Reads of the instruction TLB", 18},
    {"dtlb_misses", "Reads that missed the data TLB", 20},
    {"dtlb_loads", "Reads of the data TLB", 20},
    {"branch_misses", "Mispredicted branches", 22},
    {"branches", "Branches", 22},
};

bool is_on_this_host(const endpoint& at) {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return at.host.rfind("127.", 0) == 0 || at.host == "localhost" || at.host == "[::1]" ||
           at.host == name;
}

// Why a server may not count.
std::string permission_text(const board& server) {
    std::string setting = "kernel.perf_event_paranoid of its host";
    int level = 0;
    if (is_on_this_host(server.at()) &&
        std::ifstream("/proc/sys/kernel/perf_event_paranoid") >> level)
        setting = "perf_event_paranoid is " + std::to_string(level) + ", which";
    return "perf: the server may not count events of the whole machine: " + setting +
           " must be 0 or less, or the server have CAP_PERFMON: moncl run as root, or monsrv as "
           "root "
           "with --all-processes";
}

// Switches counting on where it is off: at first, and after the server was restarted.
int read_counters(board& server, std::uint64_t& times_started) {
    cpu_stat_manager& cpus = server.cpus;
    for (int attempt = 0;; ++attempt) {
        if (!cpus.perf_parser->enabled) {
            if (const int code = cpus.enable_perf_mon(); code < 0)
                return code;
            ++times_started;
        }
        const int code = cpus.get_perf_data(nullptr);
        if (code != -ENODATA || attempt > 0)
            return code;
        cpus.perf_parser->enabled = false;
    }
}

int ask(board& server, std::uint64_t& times_started, sample& into) {
    const int code = read_counters(server, times_started);
    if (code == -EACCES || (code == -EPERM && server.is_servers_own(code)))
        into.faults.push_back(permission_text(server));
    if (code < 0)
        return code;
    event_counts counts;
    std::memcpy(counts.data(), server.cpus.perf_parser->counters, sizeof counts);
    row& all = into.add();
    all.values.resize(event_count);
    for (std::size_t i = 0; i < event_count; ++i) {
        const int by = events[i].known_by;
        if (by < 0 || counts[static_cast<std::size_t>(by)] > 0)
            all.values[i] = counts[i];
    }
    all.incarnation = times_started;
    return code;
}

std::string explain(int code) {
    if (code == -ENOTSUP)
        return "perf: a server that reads a tree of files has no machine whose events it could "
               "count (try without --root)";
    if (code == -ENOENT || code == -ENOSYS)
        return "perf: the kernel of this host counts no events (it needs CONFIG_PERF_EVENTS)";
    return "";
}

// Counting starts again with each report, so that its figures and its time are of one interval.
int write_library_report(board& server, std::ostream& out) {
    cpu_stat_manager& cpus = server.cpus;
    if (!cpus.perf_parser->enabled)
        return cpus.enable_perf_mon();
    const int code = cpus.get_perf_data(&out);
    return code < 0 && code != -ENODATA ? code : cpus.enable_perf_mon();
}

field per_second(const char* name, const char* heading, const char* help, const char* of) {
    return rate(name, unit::per_second, help).per_second_of(of).column(heading);
}

field percent(const char* name, const char* heading, int rank, const char* part, const char* whole,
              const char* help) {
    return rate(name, unit::percent, help)
        .formed_by({{part}, {}, {whole}, 100})
        .column(heading, rank);
}

std::vector<field> fields() {
    std::vector<field> all;
    for (const event& each : events)
        all.push_back(counter(each.name, unit::none, each.help));
    all.push_back(rate("ipc", unit::none, "Instructions for each cycle")
                      .formed_by({{"instructions"}, {}, {"cycles"}})
                      .column("IPC"));
    for (field& each : std::vector{
             per_second("migrations_per_second", "migr/s",
                        "Moves of a task to another CPU in a second", "migrations"),
             per_second("page_faults_per_second", "faults/s", "Page faults in a second",
                        "page_faults"),
             per_second("context_switches_per_second", "cswch/s", "Context switches in a second",
                        "context_switches"),
             percent("frontend_stall_percent", "%front", 3, "frontend_stall_cycles", "cycles",
                     "Cycles without an instruction to issue, of all cycles"),
             percent("backend_stall_percent", "%back", 3, "backend_stall_cycles", "cycles",
                     "Cycles in which no instruction could go on, of all cycles"),
             percent("l1d_miss_percent", "%L1D", 2, "l1d_misses", "l1d_loads",
                     "Reads of the level 1 data cache that missed"),
             percent("l1i_miss_percent", "%L1I", 2, "l1i_misses", "l1i_loads",
                     "Reads of the level 1 instruction cache that missed"),
             percent("l2d_miss_percent", "%L2", 4, "l2d_refills", "l2d_accesses",
                     "Refills of the level 2 cache, of its accesses"),
             percent("l3d_miss_percent", "%L3", 4, "l3d_refills", "l3d_accesses",
                     "Refills of the level 3 cache, of its accesses"),
             percent("llc_miss_percent", "%LLC", 2, "llc_misses", "llc_loads",
                     "Reads of the last level cache that missed"),
             percent("dtlb_miss_percent", "%DTLB", 5, "dtlb_misses", "dtlb_loads",
                     "Reads of the data TLB that missed"),
             percent("itlb_miss_percent", "%ITLB", 5, "itlb_misses", "itlb_loads",
                     "Reads of the instruction TLB that missed"),
             percent("branch_miss_percent", "%branch", 2, "branch_misses", "branches",
                     "Branches that were mispredicted"),
         })
        all.push_back(std::move(each));
    return all;
}

const subject_registration registered([] {
    subject perf{"perf", "perf", "Hardware and kernel event counters of the whole machine",
                 fields(), [](const selection&) -> asker {
                     return
                         [times_started = std::uint64_t{0}](board& server, sample& into) mutable {
                             return ask(server, times_started, into);
                         };
                 }};
    perf.lacking = "perf: the kernel of this host has no events to count";
    perf.explain = explain;
    perf.library_report = write_library_report;
    perf.switches_on = true;
    perf.place = 65;
    return perf;
}());

} // namespace
} // namespace tools
