// Asks a server once for the memory of its machine and shows how much of it is in use.
#include "peri_stat_manager.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) try {
    peri_stat_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    if (board.get_meminfo(nullptr) < 0) // the library's log says why
        return 1;
    const meminfo& mem = board.mem_parser->mem;
    if (mem.memTotal == 0) { // the answer had no such line
        std::cerr << "the server does not say how much memory there is\n";
        return 1;
    }
    const std::uint64_t used = mem.memTotal - mem.memAvailable;
    std::cout << mem.memTotal << " kB, " << 100 * used / mem.memTotal << " % in use\n";
    return 0;
} catch (const char* failure) { // the constructor could not reach the server
    std::cerr << failure << "\n";
    return 1;
}
