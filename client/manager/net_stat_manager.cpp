// Network monitoring and its report.
#include "net_stat_manager.h"

#include "request_numbers.h"

#include <algorithm>
#include <iomanip>
#include <vector>

using ns_req_template::request_handler;

namespace {
constexpr const char* connect_failure = "NET connect to server failed";

// Reports and requests go in ascending order, whatever the map's is.
std::vector<int> sorted_keys(const std::unordered_map<int, net_stat>& entries) {
    std::vector<int> keys;
    keys.reserve(entries.size());
    for (const auto& [key, entry] : entries)
        keys.push_back(key);
    std::sort(keys.begin(), keys.end());
    return keys;
}
} // namespace

template<>
int request_handler::handle_request(std::shared_ptr<net_stat_parse> parser) {
    data_struct* answer = client->get_recv_data();
    if (answer->sub_command != network_request::bandwidth)
        return 0;
    timeval& last_time = static_cast<net_stat_manager*>(manager)->last_time;
    // A time stamp without microseconds is taken for none.
    unsigned long interval_ms = 0;
    if (last_time.tv_sec != 0 && last_time.tv_usec != 0)
        interval_ms = time_diff(last_time, answer->time);
    parser->parse_net_stat(answer->msg, interval_ms);
    last_time = answer->time;
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<net_stat_parse> parser, std::ostream& out) {
    out << std::left << std::setw(6) << "Net" << std::setw(3) << "Rate(KB/s)" << std::endl;
    for (int position : sorted_keys(parser->dev_result)) {
        const net_stat& device = parser->dev_result[position];
        out << std::left << std::setw(6) << field_text(device.dev_name) << std::fixed
            << std::setprecision(2) << std::setw(3) << device.rate / 1024 << std::endl;
    }
    for (int pid : sorted_keys(parser->pid_result)) {
        const net_stat& process = parser->pid_result[pid];
        out << std::dec << "pid:" << pid << ", total " << process.total << " bytes"
            << ", rate:" << process.rate / 1024 << " Kbytes/s";
    }
}

net_stat_manager::net_stat_manager() : parser(std::make_shared<net_stat_parse>()) {
    request_cmd = network_command;
    manager = this;
    log_tag = "MONCL_NET";
}

net_stat_manager::net_stat_manager(std::shared_ptr<client_comm> comm) : net_stat_manager() {
    connect(std::move(comm), connect_failure);
}

net_stat_manager::net_stat_manager(const std::string& ip, int port) : net_stat_manager() {
    connect(std::make_shared<client_comm>(ip, port), connect_failure);
}

int net_stat_manager::send_pid(int sub_command, int pid) {
    std::uint8_t payload[4];
    u32_to_u8(static_cast<unsigned int>(pid), payload);
    return get_req_info(sub_command, payload, sizeof payload, parser, nullptr);
}

// The server sets the sub-command of its answers, so even the answer to a start, which does not
// hold `net_lock`, may be decoded as one to a bandwidth query. Only `req_lock` keeps every decode
// away.
template<class Change>
void net_stat_manager::with_registered(Change change) {
    std::lock_guard<std::mutex> lock(req_lock);
    change(*parser);
}

int net_stat_manager::start_net_monitor() {
    return get_sys_info(network_request::start, parser, nullptr);
}

int net_stat_manager::add_net_monitor_process(int pid) {
    std::lock_guard<std::mutex> lock(net_lock);
    with_registered([pid](net_stat_parse& registered) { registered.pid_result.try_emplace(pid); });
    return send_pid(network_request::add_process, pid);
}

int net_stat_manager::remove_net_monitor_process(int pid) {
    std::lock_guard<std::mutex> lock(net_lock);
    with_registered([pid](net_stat_parse& registered) { registered.pid_result.erase(pid); });
    return send_pid(network_request::remove_process, pid);
}

int net_stat_manager::get_bandwidth_stat(std::ostream* os) {
    std::lock_guard<std::mutex> lock(net_lock);
    return get_sys_info(network_request::bandwidth, parser, os);
}

int net_stat_manager::exit_net_monitor() {
    std::lock_guard<std::mutex> lock(net_lock);
    std::vector<int> pids;
    with_registered(
        [&pids](net_stat_parse& registered) { pids = sorted_keys(registered.pid_result); });
    for (int pid : pids)
        send_pid(network_request::remove_process, pid);
    with_registered([](net_stat_parse& registered) {
        registered.pid_result.clear();
        registered.dev_result.clear();
    });
    return get_sys_info(network_request::exit, parser, nullptr);
}
