// Shows the load of both cores of the neural-network accelerator.
#include "nnu_ratio_manager.h"
#include "recovery.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) try {
    nnu_ratio_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    for (const auto ask :
         {&nnu_ratio_manager::get_nnu0_ratio, &nnu_ratio_manager::get_nnu1_ratio}) {
        const int code = (board.*ask)(nullptr);
        if (code == -ENODEV && answered(*board.client, code)) {
            std::cout << "this machine has no accelerator\n";
            return 0;
        }
        if (code < 0)
            return 1;
        std::cout << board.nnu_parser->name << " " << board.nnu_parser->nnu_rat << " %\n";
    }
    return 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
