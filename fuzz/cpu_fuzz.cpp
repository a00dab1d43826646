// The CPU-time table and the texts of the system information, compared with streams.
#include "cpu_stat_manager.h"
#include "fuzz_support.h"
#include "stream_way.h"

#include <tuple>

namespace {
auto figures(const cpu_stat& s) {
    return std::tie(s.cpu, s.user, s.nice, s.system, s.idle, s.iowait, s.irq, s.softirq, s.steal,
                    s.guest, s.guest_nice, s.total_delta);
}

void compare(const cpus_stats_parser& mine, const cpus_stats_parser& theirs) {
    fuzz::expect(mine.last_stats->size() == theirs.last_stats->size(), "number of CPUs");
    for (std::size_t i = 0; i < mine.last_stats->size(); ++i)
        fuzz::expect(figures(*(*mine.last_stats)[i]) == figures(*(*theirs.last_stats)[i]), "CPU");
}
} // namespace

void fuzz_cpu(const std::uint8_t* data, std::size_t size) {
    fuzz::input in(data, size);
    cpu_stat_manager manager;
    cpus_stats_parser twin;
    cpu_possible_parser possible;
    for (int i = 0; i < fuzz::most_pieces && !in.empty(); ++i) {
        const fuzz::text_payload text(in.text());
        fuzz::expect(manager.cpu_parser->parse_cpu_stats(text.data()) == 1, "CPU table refused");
        stream_way::cpus(text.text(), twin);
        compare(*manager.cpu_parser, twin);
        manager.show_result(manager.cpu_parser, fuzz::report());

        cpu_freq_parser frequency;
        std::uint64_t expected = 0;
        frequency.parse_cpu_freq(text.data());
        fuzz::last_number(text.text(), expected);
        fuzz::expect(frequency.cpu_f->cpu_frequency == expected, "frequency");
        possible.parse_cpu_possible(text.data());
        version_parser version;
        version.parse_version(text.data());
        fuzz::expect(version.ver->version.find(' ') == std::string::npos, "version of two words");
    }
}

static const fuzz::target registered("cpu", fuzz_cpu);
