// Shows the CPU usage of several servers every second, five times. One that does not answer is
// asked again each time and delays each round by at most a second.
#include "cpu_stat_manager.h"
#include "recovery.h"

#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <unistd.h>

namespace {
struct watched_board {
    std::string name;
    std::shared_ptr<client_comm> connection;
    cpu_stat_manager cpu; // has no connection of its own, so it can be made before the board is up
    bool connected = false;
};

// Usage of all CPUs together since the previous call, in percent; negative if it is unknown.
double usage_of(watched_board& board) {
    if (!board.connected)
        board.connected = start_over(*board.connection) == 0;
    if (!board.connected)
        return -1;
    const int code = board.cpu.get_cpu_usage(nullptr);
    if (code < 0) {
        board.connected = answered(*board.connection, code);
        return -1;
    }
    // The first line of the table is the total.
    const auto& total = board.cpu.cpu_parser->last_stats->front();
    return total->total_delta > 0 ? total->cpu_usage : -1;
}
} // namespace

int main(int argc, char** argv) {
    std::vector<std::unique_ptr<watched_board>> boards;
    for (int i = 1; i + 1 < argc; i += 2) { // HOST PORT [HOST PORT...]
        auto board = std::make_unique<watched_board>();
        board->name = std::string(argv[i]) + ":" + argv[i + 1];
        board->connection = std::make_shared<client_comm>(argv[i], std::atoi(argv[i + 1]));
        // Each server grants ids by itself, so each connection keeps its own.
        board->connection->keep_own_id();
        board->cpu.client = board->connection;
        boards.push_back(std::move(board));
    }
    for (int round = 0; round < 5; ++round) {
        for (const auto& board : boards) {
            const double usage = usage_of(*board);
            std::cout << board->name << " ";
            if (usage < 0)
                std::cout << "unknown\n";
            else
                std::cout << std::fixed << std::setprecision(1) << usage << " %\n";
        }
        sleep(1);
    }
    return 0;
}
