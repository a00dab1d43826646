// Connecting to a server and asking it.
#include "board.h"

#include "encryption.h"
#include "recovery.h"
#include "request_numbers.h"

#include <initializer_list>

namespace tools {

namespace {
// An answer's packet has 8240 bytes; there is room for what encryption adds, and for servers that
// send longer ones.
constexpr std::int64_t largest_part = 16384;
// A server that is asked more often than every 15 s is never cut off for want of heartbeats.
constexpr int heartbeat_interval_ms = 5000;
constexpr int heartbeat_timeout_ms = 15000;
} // namespace

system_queries::system_queries() {
    request_cmd = system_command;
    manager = this;
    log_tag = "MONCL_SYSINFO";
}

int system_queries::get_version() {
    return get_sys_info(system_request::version, version, nullptr);
}

int system_queries::get_cpu_possible() {
    possible->cpu_num = 0; // the decoder adds to it where a server has a single CPU
    const int code = get_sys_info(system_request::possible_cpus, possible, nullptr);
    return code < 0 ? code : possible->cpu_num;
}

int system_queries::get_cpu_freq(int cpu) {
    return get_sys_info(system_request::cpu_frequency + cpu, freq, nullptr);
}

board::board(endpoint at)
    : connection(std::make_shared<client_comm>(at.host, at.port)), at_(std::move(at)) {
    connection->stop_at_last_part(true);
    connection->keep_own_id();
    connection->allow_ipv6(at_.is_ipv6());
    connection->limit_message(largest_part);
    connection->send_heartbeats(heartbeat_interval_ms, heartbeat_timeout_ms);
    connection->wait_through_signals(true);
    connection->watch_handshake(true);
    if (at_.keys)
        connection->encrypt(at_.keys->secret_key, at_.keys->server_key);
    for (ns_req_template::request_handler* each :
         std::initializer_list<ns_req_template::request_handler*>{&system, &cpus, &peripherals,
                                                                  &network, &nnu, &video})
        each->client = connection;
}

board::~board() {
    if (connected_) {
        if (cpus.perf_parser->enabled)
            cpus.disable_perf_mon();
        if (!network.parser->pid_result.empty())
            network.exit_net_monitor();
        connection->back_client_id();
    }
    cpus.client = nullptr; // otherwise its destructor would ask a server that may not answer
    close_at_once(*connection);
}

bool board::connect() {
    if (connected_)
        return true;
    lasting_.clear();
    connected_ = start_over(*connection) == 0;
    return connected_;
}

std::string board::away_text() const {
    const std::string server = at_.text();
    switch (connection->last_handshake()) {
    case handshake::needs_encryption:
        return server + " takes encrypted connections only: name keys with --key and --server-key";
    case handshake::not_encrypted:
        return server + " is not encrypted: start monsrv with --curve-key there, or leave out "
                        "--key and --server-key";
    case handshake::key_refused:
        return server + " refuses this key: add " + at_.keys->public_key + " (" +
               at_.keys->key_file + ".pub) to the server's --allow file";
    case handshake::broken_off:
        return server + " breaks the handshake off: " +
               (at_.keys ? "is " + at_.keys->server_key + " its key, and is it encrypted?"
                         : "does it take encrypted connections only (--key and --server-key)?");
    case handshake::failed:
        return server + " is no server of this kind: does another program listen at that port?";
    default:
        return "no answer from " + server +
               " within 1 s: is monsrv running there and is the port open?";
    }
}

bool board::is_servers_own(int code) {
    connected_ = answered(*connection, code);
    return connected_;
}

int board::once(const std::string& name, const std::function<int()>& query) {
    if (const auto done = done_.find(name); done != done_.end())
        return done->second;
    const int result = query();
    // Only of the latest query can it be found out whether a negative code is the server's own, so
    // a refused query is sent again.
    if (result >= 0)
        done_.emplace(name, result);
    return result;
}

int board::lately(const std::string& name, const std::function<int()>& query) {
    const auto now = std::chrono::steady_clock::now();
    if (const auto known = lasting_.find(name);
        known != lasting_.end() && known->second.until > now)
        return known->second.result;
    const int result = query();
    if (result >= 0)
        lasting_[name] = {now + std::chrono::minutes(1), result};
    return result;
}

int board::get_process_status(int pid) {
    return once("status of process " + std::to_string(pid), [&] {
        auto& status = statuses[pid];
        status = std::make_shared<process_stat_parser>(pid, cpus.cpus_num);
        return cpus.get_process_info(cpu_request::process_status, status, nullptr);
    });
}

int board::get_busiest_processes() {
    return once("busiest processes", [this] {
        const int code = cpus.get_process_all(0, nullptr);
        if (code >= 0)
            busiest = *cpus.process_parser->pid_info; // which the next answer overwrites
        return code;
    });
}

} // namespace tools
