// Network bandwidth per device and per registered process.
#ifndef MONCL_NET_STAT_MANAGER_H
#define MONCL_NET_STAT_MANAGER_H

#include "client.h"
#include "request_handler.h"

#include <string>

/// Drives a monitoring period on the server: start, register processes, poll, exit. Operations may
/// come from several threads. Destroying the manager does not end the period; `exit_net_monitor`
/// does.
///
/// Operations return 0 or the negative code of the request cycle.
class MONCL_API net_stat_manager : public ns_req_template::request_handler {
public:
    /// Has no connection: give it one through `client` before the first query.
    net_stat_manager();
    /// Uses @p comm and connects it, even if it is connected already.
    /// @throws const char* "NET connect to server failed"
    explicit net_stat_manager(std::shared_ptr<client_comm> comm);
    /// Connects to the server at @p ip : @p port.
    /// @throws const char* "NET connect to server failed"
    net_stat_manager(const std::string& ip, int port);

    /// Starts the monitoring period.
    int start_net_monitor();
    /// Registers a process with this object, even if the request fails, and with the server. A
    /// process that is registered already keeps its total.
    int add_net_monitor_process(int pid);
    /// Unregisters a process with this object, even if the request fails, and with the server.
    int remove_net_monitor_process(int pid);
    /// Asks for the bytes of every device and registered process, and writes the rates since the
    /// previous call to @p os unless it is null. The first call reports 0. A process that was
    /// registered after the previous call is reported as if all of its bytes were new. No line end
    /// follows the last process.
    int get_bandwidth_stat(std::ostream* os);
    /// Unregisters every process, forgets all totals and ends the monitoring period; a process
    /// that fails does not stop the rest.
    /// @return the result of ending the period
    int exit_net_monitor();

    std::mutex net_lock; ///< held by all operations but start, and taken before `req_lock`:
                         ///< keeps the same processes registered here and with the server
    timeval last_time{}; ///< receipt of the latest bandwidth answer; zero before the first
    std::shared_ptr<net_stat_parse> parser;

private:
    MONCL_LOCAL int send_pid(int sub_command, int pid);
    template<class Change>
    MONCL_LOCAL void with_registered(Change change);
};

namespace ns_req_template {
template<>
int request_handler::handle_request(std::shared_ptr<net_stat_parse> parser);
template<>
void request_handler::show_result(std::shared_ptr<net_stat_parse> parser, std::ostream& out);
} // namespace ns_req_template

#endif
