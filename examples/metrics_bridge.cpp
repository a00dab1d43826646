// A metrics bridge: writes what one board answers in the text form that Prometheus reads, to
// standard output. Run it from a timer into a file of the node exporter's textfile collector.
#include "cpu_stat_manager.h"
#include "peri_stat_manager.h"

#include <cstdlib>
#include <iostream>

namespace {
void metric(const char* name, const char* type) {
    std::cout << "# TYPE " << name << " " << type << "\n";
}
} // namespace

int main(int argc, char** argv) try {
    const auto connection = std::make_shared<client_comm>(argc > 1 ? argv[1] : "127.0.0.1",
                                                          argc > 2 ? std::atoi(argv[2]) : 5757);
    cpu_stat_manager cpu(connection); // connects
    peri_stat_manager peri;           // shares the connection
    peri.client = connection;
    std::cout.precision(15);
    // A query that fails has no lines: what is unknown is left out, never written as 0.
    if (cpu.get_cpu_usage(nullptr) >= 0) {
        metric("board_cpu_idle_seconds_total", "counter");
        for (const auto& each : *cpu.cpu_parser->last_stats)
            if (each->cpu != "cpu") // the sum of the others, which Prometheus can form
                std::cout << "board_cpu_idle_seconds_total{cpu=\"" << each->cpu.substr(3) << "\"} "
                          << static_cast<double>(each->idle) / 100 << "\n";
    }
    if (peri.get_meminfo(nullptr) >= 0) {
        metric("board_memory_available_bytes", "gauge");
        std::cout << "board_memory_available_bytes " << peri.mem_parser->mem.memAvailable * 1024
                  << "\n";
    }
    return 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
