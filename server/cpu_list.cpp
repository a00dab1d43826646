// Reading lists of CPUs.
#include "cpu_list.h"

#include "text_reader.h"

namespace monsrv {

std::vector<int> read_cpu_list(std::string_view list) {
    constexpr std::size_t most = 8192; // no kernel is built for more
    std::vector<int> cpus;
    text_reader ranges(list);
    for (std::string_view range; ranges.next_line(range, ',');) {
        text_reader bounds(range);
        int first = 0;
        if (!bounds.number(first) || first < 0)
            break;
        int last = first;
        char dash = 0;
        if (bounds.character(dash) && !(dash == '-' && bounds.number(last)))
            break;
        for (int cpu = first; cpu <= last && cpus.size() < most; ++cpu)
            cpus.push_back(cpu);
    }
    return cpus;
}

} // namespace monsrv
