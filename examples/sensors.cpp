// Shows all temperatures, the states of the cooling devices and the use of the ion heaps.
#include "peri_stat_manager.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) try {
    peri_stat_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    if (board.get_all_thermal(nullptr) >= 0) {
        int zone = 0;
        for (const std::uint64_t decoded : board.all_th_parser->all_th) {
            // Negative temperatures are kept modulo 2^64; below absolute zero there is none.
            const auto milli_celsius = static_cast<std::int64_t>(decoded);
            std::cout << "zone " << zone++ << ": ";
            if (milli_celsius < -273150)
                std::cout << "unknown\n";
            else
                std::cout << static_cast<double>(milli_celsius) / 1000 << " C\n";
        }
        int device = 0;
        for (const std::uint64_t state : board.all_th_parser->all_co)
            std::cout << "cooling device " << device++ << ": state " << state << "\n";
    }
    // Only a board has ion heaps: a host without them refuses.
    if (board.get_ion_info(nullptr) >= 0)
        for (const ion_info& heap : board.ion_parser->ion_vec)
            std::cout << "heap " << field_text(heap.ion_name) << ": " << heap.used << " bytes\n";
    return 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
