// System information queries.
#include "sys_info_manager.h"

#include "request_numbers.h"

using ns_req_template::request_handler;

template<>
int request_handler::handle_request(std::shared_ptr<cpu_freq_parser> parser) {
    parser->parse_cpu_freq(client->get_recv_data()->msg);
    return 0;
}

template<>
int request_handler::handle_request(std::shared_ptr<cpu_possible_parser> parser) {
    return parser->parse_cpu_possible(client->get_recv_data()->msg);
}

template<>
int request_handler::handle_request(std::shared_ptr<version_parser> parser) {
    parser->parse_version(client->get_recv_data()->msg);
    return 0;
}

// No query of this manager reports; a caller that asks for these parsers with a stream gets the
// bare value.
template<>
void request_handler::show_result(std::shared_ptr<cpu_freq_parser> parser, std::ostream& out) {
    out << parser->cpu_f->cpu_frequency;
}

template<>
void request_handler::show_result(std::shared_ptr<cpu_possible_parser> parser, std::ostream& out) {
    out << parser->cpu_num;
}

template<>
void request_handler::show_result(std::shared_ptr<version_parser> parser, std::ostream& out) {
    out << parser->ver->version;
}

sysinfo_manager::sysinfo_manager(const std::string& ip, int port)
    : sysinfo_manager(std::make_shared<client_comm>(ip, port)) {}

sysinfo_manager::sysinfo_manager(std::shared_ptr<client_comm> comm) {
    connect(std::move(comm), "SYSINFO connect to server failed");
    freq_parser = std::make_shared<cpu_freq_parser>();
    possible_parser = std::make_shared<cpu_possible_parser>();
    ver_parser = std::make_shared<version_parser>();
    request_cmd = system_command;
    manager = this;
    log_tag = "MONCL_SYSINFO";
}

int sysinfo_manager::get_cpu_freq(int cpu) {
    return get_sys_info(system_request::cpu_frequency + cpu, freq_parser, nullptr);
}

int sysinfo_manager::get_cpu0_freq() {
    return get_cpu_freq(0);
}

int sysinfo_manager::get_cpu1_freq() {
    return get_cpu_freq(1);
}

int sysinfo_manager::get_cpu2_freq() {
    return get_cpu_freq(2);
}

int sysinfo_manager::get_cpu3_freq() {
    return get_cpu_freq(3);
}

int sysinfo_manager::get_cpu4_freq() {
    return get_cpu_freq(4);
}

int sysinfo_manager::get_cpu5_freq() {
    return get_cpu_freq(5);
}

int sysinfo_manager::get_cpu6_freq() {
    return get_cpu_freq(6);
}

int sysinfo_manager::get_cpu7_freq() {
    return get_cpu_freq(7);
}

int sysinfo_manager::get_cpu_possible(std::ostream*) {
    std::lock_guard<std::mutex> lock(req_lock);
    int r = run_standard_cycle(system_request::possible_cpus, possible_parser, nullptr);
    if (r < 0) {
        log_failure("get cpu num failed\n", r);
        return r;
    }
    return possible_parser->cpu_num;
}

int sysinfo_manager::get_version() {
    return get_sys_info(system_request::version, ver_parser, nullptr);
}

std::uint64_t sysinfo_manager::last_cpu_freq() const {
    std::lock_guard<std::mutex> lock(req_lock);
    return freq_parser->cpu_f->cpu_frequency;
}

std::string sysinfo_manager::last_version() const {
    std::lock_guard<std::mutex> lock(req_lock);
    return ver_parser->ver->version;
}
