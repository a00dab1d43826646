// Shows the bytes per second of every network device, and those of this process.
#include "net_stat_manager.h"

#include <cstdlib>
#include <iostream>
#include <unistd.h>

int main(int argc, char** argv) try {
    net_stat_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    if (board.start_net_monitor() < 0)
        return 1;
    board.add_net_monitor_process(getpid()); // a server on another machine has no such process
    if (board.get_bandwidth_stat(nullptr) < 0)
        return 1;
    sleep(1); // rates cover the time between two answers
    if (board.get_bandwidth_stat(nullptr) < 0)
        return 1;
    for (const auto& [position, device] : board.parser->dev_result)
        std::cout << device.dev_name << ": " << device.rate << " B/s\n";
    for (const auto& [pid, process] : board.parser->pid_result)
        std::cout << "process " << pid << ": " << process.rate << " B/s\n";
    return board.exit_net_monitor() < 0 ? 1 : 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
