// Load of the two cores of the neural-network accelerator.
#ifndef MONCL_NNU_RATIO_MANAGER_H
#define MONCL_NNU_RATIO_MANAGER_H

#include "client.h"
#include "request_handler.h"

#include <string>

/// Asks for accelerator loads. Queries may come from several threads.
///
/// Queries return 0 or the negative code of the request cycle, and write their report to the stream
/// unless that is null.
class MONCL_API nnu_ratio_manager : public ns_req_template::request_handler {
public:
    /// Has no connection: give it one through `client` before the first query.
    nnu_ratio_manager();
    /// Uses @p comm and connects it, even if it is connected already.
    /// @throws const char* "NNU connect to server failed"
    explicit nnu_ratio_manager(std::shared_ptr<client_comm> comm);
    /// Connects to the server at @p ip : @p port.
    /// @throws const char* "NNU connect to server failed"
    nnu_ratio_manager(const std::string& ip, int port);

    /// Load of core 0, in percent.
    int get_nnu0_ratio(std::ostream* os);
    /// Load of core 1, in percent.
    int get_nnu1_ratio(std::ostream* os);
    /// A heading and the load of core 0; core 1 is not asked.
    int get_nnu_ratio_all(std::ostream* os);

    std::shared_ptr<nnu_ratio_parser> nnu_parser;

private:
    MONCL_LOCAL int get_ratio(int sub_command, const char* name, std::ostream* os);
};

namespace ns_req_template {
template<>
int request_handler::handle_request(std::shared_ptr<nnu_ratio_parser> parser);
template<>
void request_handler::show_result(std::shared_ptr<nnu_ratio_parser> parser, std::ostream& out);
} // namespace ns_req_template

#endif
