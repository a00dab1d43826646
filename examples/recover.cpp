// Asks for the CPU usage every second, for ten seconds, and recovers when the server goes away and
// comes back.
#include "cpu_stat_manager.h"
#include "recovery.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <unistd.h>

int main(int argc, char** argv) {
    const auto connection = std::make_shared<client_comm>(argc > 1 ? argv[1] : "127.0.0.1",
                                                          argc > 2 ? std::atoi(argv[2]) : 5757);
    cpu_stat_manager cpu; // over one connection, which is started over: no new manager is needed
    cpu.client = connection;
    bool connected = false;
    bool has_sample = false; // a rate over an outage would hide it
    for (int second = 0; second < 10; ++second) {
        if (!connected) {
            connected = start_over(*connection) == 0; // takes 1000 ms when nobody answers
            has_sample = false;
        }
        const int code = connected ? cpu.get_cpu_usage(nullptr) : -1;
        if (code >= 0 && has_sample)
            std::cout << cpu.cpu_parser->last_stats->front()->cpu_usage << " %" << std::endl;
        else if (code >= 0)
            std::cout << "connected" << std::endl;
        else if (connected && answered(*connection, code))
            std::cout << "refused: " << std::strerror(-code) << std::endl;
        else
            std::cout << "no answer" << std::endl;
        connected = connected && (code >= 0 || answered(*connection, code));
        has_sample = code >= 0;
        sleep(1);
    }
    cpu.client = nullptr; // the connection is left below; the manager has nothing more to say
    leave(*connection);
    return 0;
}
