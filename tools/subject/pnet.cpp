// Network use of watched processes.
#include "board.h"
#include "subject.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace tools {
namespace {

// Marks the library's record of a process until an answer names the process. Answers that do not
// name it leave the record unchanged.
constexpr std::uint64_t no_answer = std::numeric_limits<std::uint64_t>::max();

struct registered_process {
    int pid = 0;
    bool known = false; ///< the server accepted it once
    bool ended = false;
};

/// Registers processes with the server, and again at each report, because a server that was
/// restarted between two reports has forgotten them and the connection does not show it.
class network_watch {
public:
    explicit network_watch(const std::vector<int>& pids) {
        for (const int pid : pids)
            if (std::none_of(processes_.begin(), processes_.end(),
                             [pid](const registered_process& each) { return each.pid == pid; }))
                processes_.push_back({pid, false, false});
    }

    int ask(board& server, sample& into) {
        int code = server.network.start_net_monitor();
        for (registered_process& each : processes_)
            if (code >= 0 && !each.ended)
                code = enter(server, each, into);
        // `once` may return an answer from before a process was registered, if another subject
        // asked.
        if (code >= 0)
            code = server.once("bandwidth",
                               [&] { return server.network.get_bandwidth_stat(nullptr); });
        if (code < 0)
            return code;
        for (const registered_process& each : processes_)
            add_row(server, each, into);
        into.ended = std::all_of(processes_.begin(), processes_.end(),
                                 [](const registered_process& each) { return each.ended; });
        return code;
    }

private:
    // A server may register a process that does not exist, so its status is asked for first.
    static int enter(board& server, registered_process& process, sample& into) {
        const std::string name = "process " + std::to_string(process.pid);
        int code = server.get_process_status(process.pid);
        if (code == -ESRCH && server.is_servers_own(code))
            return leave(server, process, name, into);
        if (code >= 0)
            code = add(server, process);
        if (code >= 0 || !server.is_servers_own(code))
            return code;
        server.network.parser->pid_result.erase(process.pid);
        into.faults.push_back("network of " + name + ": " + std::strerror(-code));
        return 0;
    }

    static int add(board& server, registered_process& process) {
        auto& records = server.network.parser->pid_result;
        const bool is_new = records.count(process.pid) == 0;
        const int code = server.network.add_net_monitor_process(process.pid);
        if (is_new)
            records[process.pid].total = no_answer;
        process.known = process.known || code >= 0;
        return code;
    }

    // @return 0, or the negative code of a query without an answer
    static int leave(board& server, registered_process& process, const std::string& name,
                     sample& into) {
        process.ended = true;
        if (!process.known) {
            into.faults.push_back(name + ": " + std::strerror(ESRCH));
            return 0;
        }
        into.notes.push_back(name + " has ended");
        const int code = server.network.remove_net_monitor_process(process.pid);
        return code < 0 && !server.is_servers_own(code) ? code : 0;
    }

    static void add_row(board& server, const registered_process& process, sample& into) {
        auto& records = server.network.parser->pid_result;
        const auto record = records.find(process.pid);
        if (process.ended || record == records.end())
            return;
        const auto status = server.statuses.find(process.pid);
        const process_stat* about =
            status == server.statuses.end() ? nullptr : status->second->last_process_stat.get();
        const std::uint64_t total = std::exchange(record->second.total, no_answer);
        into.add(std::to_string(process.pid), total == no_answer ? value() : value(total))
            .incarnation = about == nullptr ? 0 : about->starttime;
    }

    std::vector<registered_process> processes_;
};

int write_library_report(board& server, std::ostream& out) {
    int code = server.network.start_net_monitor();
    for (const int pid : server.chosen.pids)
        if (code >= 0)
            code = server.network.add_net_monitor_process(pid);
    if (code >= 0)
        code = server.network.get_bandwidth_stat(&out);
    out << "\n";
    return code;
}

const subject_registration registered([] {
    subject pnet{
        "pnet",
        "process_network",
        "Network use of watched processes",
        {label("pid", "PID", "Process id"),
         counter("bytes", unit::bytes,
                 "Bytes received and sent over the connections that were seen")
             .column("bytes"),
         rate("bytes_per_second", unit::bytes_per_second, "Bytes received and sent in a second")
             .per_second_of("bytes")
             .column("kB/s")},
        [](const selection& chosen) -> asker {
            return [watch = std::make_shared<network_watch>(chosen.pids)](
                       board& server, sample& into) { return watch->ask(server, into); };
        }};
    pnet.library_report = write_library_report;
    pnet.needs_pids = true;
    pnet.place = 94;
    return pnet;
}());

} // namespace
} // namespace tools
