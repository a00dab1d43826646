// The bandwidth of devices and processes.
#include "fuzz_support.h"
#include "net_stat_manager.h"

void fuzz_network(const std::uint8_t* data, std::size_t size) {
    fuzz::input in(data, size);
    net_stat_manager manager;
    for (int pid : {0, 1, 2, 1234})
        manager.parser->pid_result.try_emplace(pid);
    for (int i = 0; i < fuzz::most_pieces && !in.empty(); ++i)
        fuzz::answer(manager, manager.parser, 4, in.piece());
    fuzz::expect(manager.parser->pid_result.size() == 4, "a process that nobody registered");
}

static const fuzz::target registered("network", fuzz_network);
