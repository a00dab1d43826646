// Shows the version of a machine's system, the number of its CPUs and the frequency of the first.
#include "sys_info_manager.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) try {
    sysinfo_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    const int cpus = board.get_cpu_possible(nullptr); // the number itself
    if (cpus < 0 || board.get_version() < 0)
        return 1;
    std::cout << "version " << board.last_version() << ", " << cpus << " CPUs\n";
    // A virtual machine often has no frequency: an answer without a number decodes as 0.
    if (board.get_cpu0_freq() >= 0 && board.last_cpu_freq() > 0)
        std::cout << "CPU 0 at " << board.last_cpu_freq() / 1000 << " MHz\n";
    return 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
