// Accelerator load queries and their report.
#include "nnu_ratio_manager.h"

#include "request_numbers.h"

#include <iomanip>

using ns_req_template::request_handler;

namespace {
constexpr const char* connect_failure = "NNU connect to server failed";
}

template<>
int request_handler::handle_request(std::shared_ptr<nnu_ratio_parser> parser) {
    parser->parse_nnu_ratio(client->get_recv_data()->msg);
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<nnu_ratio_parser> parser, std::ostream& out) {
    out << std::left << std::setw(6) << parser->name << std::defaultfloat << std::setprecision(6)
        << std::setw(3) << parser->nnu_rat << "%" << std::endl;
}

nnu_ratio_manager::nnu_ratio_manager() : nnu_parser(std::make_shared<nnu_ratio_parser>()) {
    request_cmd = accelerator_command;
    manager = this;
    log_tag = "MONCL_NNU";
}

nnu_ratio_manager::nnu_ratio_manager(std::shared_ptr<client_comm> comm) : nnu_ratio_manager() {
    connect(std::move(comm), connect_failure);
}

nnu_ratio_manager::nnu_ratio_manager(const std::string& ip, int port) : nnu_ratio_manager() {
    connect(std::make_shared<client_comm>(ip, port), connect_failure);
}

int nnu_ratio_manager::get_ratio(int sub_command, const char* name, std::ostream* os) {
    std::lock_guard<std::mutex> lock(req_lock);
    nnu_parser->name = name;
    return run_standard_cycle(sub_command, nnu_parser, os);
}

int nnu_ratio_manager::get_nnu0_ratio(std::ostream* os) {
    return get_ratio(accelerator_request::load, "nnu0", os);
}

int nnu_ratio_manager::get_nnu1_ratio(std::ostream* os) {
    return get_ratio(accelerator_request::load + 1, "nnu1", os);
}

int nnu_ratio_manager::get_nnu_ratio_all(std::ostream* os) {
    if (os != nullptr)
        *os << std::left << std::setw(6) << "NNU" << std::setw(3) << "Usage" << std::endl;
    return get_nnu0_ratio(os);
}
