// Counts instructions and cycles of the whole machine for a second. Often the server may not, and
// says so: this is how its refusal is told from a failed connection.
#include "cpu_stat_manager.h"
#include "recovery.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <unistd.h>

int main(int argc, char** argv) try {
    cpu_stat_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    const int code = board.enable_perf_mon();
    if (code < 0) {
        if (!answered(*board.client, code))
            return 1;
        std::cout << "the server refuses: " << std::strerror(-code) << "\n";
        return 0;
    }
    sleep(1);
    if (board.get_perf_data(nullptr) < 0)
        return 1;
    // Lies in the receive buffer: copied before the next query.
    const perf_counters counted = *board.perf_parser->counters;
    board.disable_perf_mon();
    if (counted.cycles == 0) // a machine without hardware counters counts nothing
        std::cout << "no hardware counters, " << counted.page_faults << " page faults\n";
    else
        std::cout << static_cast<double>(counted.instructions) / static_cast<double>(counted.cycles)
                  << " instructions a cycle\n";
    return 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
