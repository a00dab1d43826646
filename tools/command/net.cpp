// moncl net: bandwidth of every network device, and of processes.
#include "net_stat_manager.h"

#include "session.h"

#include <CLI/CLI.hpp>
#include <limits>
#include <set>
#include <sstream>

namespace tools {
namespace {

// A server restarted between two reports goes unnoticed by the connection, so the period is started
// and the processes are registered at each: that changes nothing on a server that knows them.
int introduce(net_stat_manager& manager, const std::set<int>& pids) {
    int code = manager.start_net_monitor();
    for (auto pid = pids.begin(); pid != pids.end() && code >= 0; ++pid)
        code = manager.add_net_monitor_process(*pid);
    return code;
}

// The library's report has all processes in one line.
std::string split_processes(std::string report) {
    const std::string joint = "/spid:";
    for (std::size_t at = 0; (at = report.find(joint, at)) != report.npos;)
        report.insert(at + 2, "\n");
    if (!report.empty() && report.back() != '\n')
        report += '\n';
    return report;
}

int report(net_stat_manager& manager, const std::set<int>& pids, std::ostream* out) {
    if (const int code = introduce(manager, pids); code < 0)
        return code;
    if (out == nullptr)
        return manager.get_bandwidth_stat(nullptr);
    std::ostringstream text;
    const int code = manager.get_bandwidth_stat(&text);
    if (code >= 0)
        *out << split_processes(text.str());
    return code;
}

command_action configure(CLI::App& app) {
    auto pids = std::make_shared<std::vector<int>>();
    app.add_option("--pid", *pids, "Also show the process PID; may be given again")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()))
        ->allow_extra_args(false)
        ->option_text("PID");
    app.footer(
        "Bytes of a process are those of TCP data over the sockets that are open at a report, in "
        "the "
        "server's network namespace: not UDP, not connections that open and close between two "
        "reports.");
    return [pids, when = add_schedule(app)](session& asking) {
        net_stat_manager manager(asking.new_connection());
        const std::set<int> watched(pids->begin(), pids->end());
        const int status =
            asking.repeat(*when, {[&](std::ostream* out) { return report(manager, watched, out); },
                                  {manager.client},
                                  true});
        manager.exit_net_monitor();
        return status;
    };
}

const command_registration registered("net", "Bandwidth of network devices and processes",
                                      configure);

} // namespace
} // namespace tools
