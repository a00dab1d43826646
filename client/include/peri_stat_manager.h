// Memory and peripherals: memory, block devices, partitions, temperatures, cooling devices and ion
// heaps.
#ifndef MONCL_PERI_STAT_MANAGER_H
#define MONCL_PERI_STAT_MANAGER_H

#include "client.h"
#include "request_handler.h"

#include <string>
#include <vector>

/// Asks about memory and peripherals. Queries may come from several threads.
///
/// Queries return 0 or the negative code of the request cycle, and write their report, which has no
/// line end, to the stream unless that is null.
class MONCL_API peri_stat_manager : public ns_req_template::request_handler {
public:
    /// Has no connection: give it one through `client` before the first query.
    peri_stat_manager();
    /// Uses @p comm and connects it, even if it is connected already.
    /// @throws const char* "PERI connect to server failed"
    explicit peri_stat_manager(std::shared_ptr<client_comm> comm);
    /// Connects to the server at @p ip : @p port.
    /// @throws const char* "PERI connect to server failed"
    peri_stat_manager(const std::string& ip, int port);

    /// All temperatures, in 1/1000 degree Celsius, and all cooling states.
    int get_all_thermal(std::ostream* os);
    /// State of cooling device 0.
    int get_cooling_0(std::ostream* os);
    /// State of cooling device 1.
    int get_cooling_1(std::ostream* os);
    /// One temperature, in 1/1000 degree Celsius.
    /// @param sub_command the zone, by the server's numbering
    int get_thermal(int sub_command, std::ostream* os);
    /// Use of every ion heap.
    int get_ion_info(std::ostream* os);
    /// Memory of the machine.
    int get_meminfo(std::ostream* os);
    /// Rates of every block device, in KB/s since the previous call; the first reports 0.
    int get_block_usage(std::ostream* os);
    /// Space of partitions.
    /// @param parts names, NUL-terminated, only read during the call. If one does not fit into a
    ///              request of 1023 bytes, neither it nor those after it are asked for. Without
    ///              names the server chooses
    int get_partition_info(std::vector<const char*>& parts, std::ostream* os);

    std::shared_ptr<all_thermal_parser> all_th_parser;
    std::shared_ptr<cooling_parser> co_parser;
    std::shared_ptr<thermal_parser> th_parser;
    std::shared_ptr<ion_info_parser> ion_parser;
    std::shared_ptr<process_all_parser> process_parser; ///< not used, stays null
    std::shared_ptr<block_stat_parser> block_parser;
    std::shared_ptr<partition_parser> part_parser;
    std::shared_ptr<meminfo_parser> mem_parser;
};

namespace ns_req_template {
template<>
int request_handler::handle_request(std::shared_ptr<all_thermal_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<all_thermal_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<cooling_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<cooling_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<thermal_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<thermal_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<ion_info_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<ion_info_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<block_stat_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<block_stat_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<partition_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<partition_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<meminfo_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<meminfo_parser> parser, std::ostream& out);
} // namespace ns_req_template

#endif
