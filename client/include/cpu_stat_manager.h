// CPU and processes: CPU usage, interrupts, watched processes, the busiest processes and
// performance counting.
#ifndef MONCL_CPU_STAT_MANAGER_H
#define MONCL_CPU_STAT_MANAGER_H

#include "client.h"
#include "request_handler.h"

#include <string>
#include <vector>

/// Asks about CPUs and processes. Queries may come from several threads, and so may adding a
/// process.
///
/// Queries return 0 or the negative code of the request cycle, and write their report to the stream
/// unless that is null.
class MONCL_API cpu_stat_manager : public ns_req_template::request_handler {
public:
    /// Has no connection: give it one through `client` before the first query.
    cpu_stat_manager();
    /// Uses @p comm, and connects it unless it is connected.
    /// @throws const char* "CPU connect to server failed"
    explicit cpu_stat_manager(std::shared_ptr<client_comm> comm);
    /// Connects to the server at @p ip : @p port.
    /// @throws const char* "CPU connect to server failed"
    cpu_stat_manager(const std::string& ip, int port);
    /// Sends the exit notice and switches counting off if it is on; silent without a connection.
    ~cpu_stat_manager();

    /// Watches a process's status from the next `get_process_stat` on. No check for duplicates.
    void add_stat_monitor_process(int pid);
    /// Watches a process's I/O from the next `get_process_io` on. No check for duplicates.
    void add_io_monitor_process(int pid);

    /// Usage of every CPU since the previous call; the first reports 0.
    int get_cpu_usage(std::ostream* os);
    /// Status of each watched process; one that fails does not stop the others.
    /// @return the sum of the failure codes
    int get_process_stat(std::ostream* os);
    /// I/O rates of each watched process; one that fails does not stop the others.
    /// @return the sum of the failure codes
    int get_process_io(std::ostream* os);
    /// The table of busiest processes, all 146 rows of it; @p pid goes to the server as it is.
    int get_process_all(int pid, std::ostream* os);
    /// The interrupt table, which goes to standard output whatever @p os is. Every answer, of one
    /// part or of several, ends in -1 unless the connection's `stop_at_last_part` is on.
    /// @throws std::ios_base::failure if standard output is told to throw and cannot be written to
    int get_interrupt(std::ostream* os);
    /// Switches performance counting on.
    int enable_perf_mon();
    /// The counters since counting was switched on.
    int get_perf_data(std::ostream* os);
    /// Switches performance counting off.
    int disable_perf_mon();
    /// Tells the server that this manager leaves.
    int cpu_mon_exit();

    /// Asks for @p parser's process.
    /// @param sub_command number of the query that @p parser decodes
    template<class T>
    int get_process_info(int sub_command, std::shared_ptr<T> parser, std::ostream* os) {
        std::uint8_t payload[4];
        u32_to_u8(static_cast<unsigned int>(parser->pid), payload);
        return get_req_info(sub_command, payload, sizeof payload, parser, os);
    }

    std::shared_ptr<cpus_stats_parser> cpu_parser;
    std::shared_ptr<interrupt_parser> int_parser;
    std::vector<std::shared_ptr<process_stat_parser>> stat_parser; ///< in the order added
    std::vector<std::shared_ptr<process_io_parser>> io_parser;     ///< in the order added
    std::shared_ptr<process_all_parser> process_parser;
    std::shared_ptr<perf_stat_parser> perf_parser;
    std::int32_t cpus_num = 6; ///< "cpu" lines of the latest usage answer, the total's included

private:
    template<class T>
    MONCL_LOCAL int get_each_process(int sub_command,
                                     const std::vector<std::shared_ptr<T>>& parsers,
                                     std::ostream* os);
};

namespace ns_req_template {
template<>
int request_handler::handle_request(std::shared_ptr<cpus_stats_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<cpus_stats_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<interrupt_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<interrupt_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<process_stat_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<process_stat_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<process_io_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<process_io_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<process_all_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<process_all_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<perf_stat_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<perf_stat_parser> parser, std::ostream& out);
} // namespace ns_req_template

#endif
