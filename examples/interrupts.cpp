// Prints the interrupt table and then the line with the highest count of the first CPU.
#include "cpu_stat_manager.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) try {
    cpu_stat_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    board.client->stop_at_last_part(true); // otherwise a complete answer ends in -1
    if (board.get_interrupt(nullptr) < 0)  // prints the table to standard output
        return 1;
    const interrupt* busiest = nullptr;
    for (const auto& each : *board.int_parser->interrupts)
        if (!each->int_cnt.empty() &&
            (busiest == nullptr || each->int_cnt[0] > busiest->int_cnt[0]))
            busiest = each.get();
    if (busiest == nullptr) {
        std::cerr << "the table has no counts\n";
        return 1;
    }
    std::cout << "\nbusiest on the first CPU: "
              << (busiest->IPI_int_num.empty() ? std::to_string(busiest->logic_int_num) + ":"
                                               : busiest->IPI_int_num)
              << " " << busiest->int_cnt[0] << " interrupts\n";
    return 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
