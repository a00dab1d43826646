// Shows the five busiest processes of the last second, then the status of one process.
#include "cpu_stat_manager.h"

#include <cstdlib>
#include <iostream>
#include <unistd.h>

int main(int argc, char** argv) try {
    cpu_stat_manager board(argc > 1 ? argv[1] : "127.0.0.1", argc > 2 ? std::atoi(argv[2]) : 5757);
    // The server computes the rates, over the time since this client asked last.
    if (board.get_process_all(0, nullptr) < 0)
        return 1;
    sleep(1);
    if (board.get_process_all(0, nullptr) < 0)
        return 1;
    // Lies in the receive buffer: what is kept of it is copied before the next query.
    const top_pid_info& top = *board.process_parser->pid_info;
    for (int i = 0; i < top.pid_num && i < 5; ++i)
        std::cout << top.send_pid_info[i].pid << " " << field_text(top.send_pid_info[i].comm) << " "
                  << top.send_pid_info[i].process_usage << " %\n";

    board.add_stat_monitor_process(argc > 3 ? std::atoi(argv[3]) : 1);
    if (board.get_process_stat(nullptr) < 0)
        return 1;
    const process_stat_parser& process = *board.stat_parser.front();
    std::cout << "process " << process.pid << " is " << process.last_process_stat->comm
              << " in state " << process.state << "\n";
    return 0;
} catch (const char* failure) {
    std::cerr << failure << "\n";
    return 1;
}
