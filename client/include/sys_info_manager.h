// System information: CPU frequencies, the number of possible CPUs and the system version.
#ifndef MONCL_SYS_INFO_MANAGER_H
#define MONCL_SYS_INFO_MANAGER_H

#include "client.h"
#include "request_handler.h"

#include <string>

/// Asks for system information over a connection of its own. Queries may come from several threads.
class MONCL_API sysinfo_manager : public ns_req_template::request_handler {
public:
    /// Connects to the server at @p ip : @p port.
    /// @throws const char* "SYSINFO connect to server failed"
    sysinfo_manager(const std::string& ip, int port);
    /// Connects @p comm, which the caller may have set up, and keeps it.
    /// @throws const char* "SYSINFO connect to server failed"
    explicit sysinfo_manager(std::shared_ptr<client_comm> comm);

    /// Asks for the frequency of CPU 0; read it with `last_cpu_freq`. The others ask for CPU 1
    /// to 7.
    /// @return 0, or the negative code of the request cycle
    int get_cpu0_freq();
    int get_cpu1_freq(); ///< see `get_cpu0_freq`
    int get_cpu2_freq(); ///< see `get_cpu0_freq`
    int get_cpu3_freq(); ///< see `get_cpu0_freq`
    int get_cpu4_freq(); ///< see `get_cpu0_freq`
    int get_cpu5_freq(); ///< see `get_cpu0_freq`
    int get_cpu6_freq(); ///< see `get_cpu0_freq`
    int get_cpu7_freq(); ///< see `get_cpu0_freq`

    /// Asks for the number of possible CPUs. @p out is not used.
    /// @return the number, 0 if no answer ever held one; or the negative code of the request cycle
    int get_cpu_possible(std::ostream* out);

    /// Asks for the system version; read it with `last_version`.
    /// @return 0, or the negative code of the request cycle
    int get_version();

    /// The frequency decoded last, as the server's text gave it (kHz where it is the kernel's own);
    /// 0 before the first answer.
    std::uint64_t last_cpu_freq() const;
    /// The version word decoded last; empty before the first answer.
    std::string last_version() const;

private:
    MONCL_LOCAL int get_cpu_freq(int cpu);

    std::shared_ptr<cpu_freq_parser> freq_parser;
    std::shared_ptr<cpu_possible_parser> possible_parser;
    std::shared_ptr<version_parser> ver_parser;
};

namespace ns_req_template {
template<>
int request_handler::handle_request(std::shared_ptr<cpu_freq_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<cpu_freq_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<cpu_possible_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<cpu_possible_parser> parser, std::ostream& out);
template<>
int request_handler::handle_request(std::shared_ptr<version_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<version_parser> parser, std::ostream& out);
} // namespace ns_req_template

#endif
