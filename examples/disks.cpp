// Shows what was read from and written to each block device since boot, and the space of /.
#include "peri_stat_manager.h"

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) try {
    peri_stat_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    if (board.get_block_usage(nullptr) < 0)
        return 1;
    const block_stats& devices = *board.block_parser->stats;
    for (int i = 0; i < devices.num; ++i)
        std::cout << field_text(devices.stat[i].name) << ": " << devices.stat[i].rd_kb
                  << " kB read, " << devices.stat[i].wr_kb << " kB written\n";

    std::vector<const char*> names{"/"};
    if (board.get_partition_info(names, nullptr) < 0)
        return 1;
    for (const part_info& each : board.part_parser->part_vec)
        std::cout << field_text(each.part_name) << ": " << each.f_blocks * each.f_frsize
                  << " bytes, " << each.f_bavail * each.f_frsize << " available\n";
    return 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
