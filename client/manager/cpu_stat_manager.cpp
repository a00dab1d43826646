// CPU and process queries and their reports.
#include "cpu_stat_manager.h"

#include "request_numbers.h"

#include <algorithm>
#include <iomanip>
#include <limits>

using ns_req_template::request_handler;

// ------------------------------------------------------------------------------------ CPU usage

template<>
int request_handler::handle_request(std::shared_ptr<cpus_stats_parser> parser) {
    parser->parse_cpu_stats(client->get_recv_data()->msg);
    if (parser->last_stats)
        static_cast<cpu_stat_manager*>(manager)->cpus_num =
            static_cast<std::int32_t>(parser->last_stats->size());
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<cpus_stats_parser> parser, std::ostream& out) {
    if (!parser->last_stats)
        return;
    out << std::left << std::setw(6) << "CPU";
    for (const char* heading : {"usr", "sys", "iowait", "irq", "sirq", "usage"})
        out << std::setw(10) << heading;
    out << std::endl;
    for (const auto& stat : *parser->last_stats) {
        parser->show_all_times(stat, out);
        out << "\n";
    }
}

// ----------------------------------------------------------------------------------- interrupts

template<>
int request_handler::handle_request(std::shared_ptr<interrupt_parser> parser) {
    const int r = receive_parts();
    if (r < 0)
        return log_failure("Receive message error with %d\n", r);
    if (std::any_of(joined_parts.begin(), joined_parts.begin() + joined_len,
                    [](unsigned char byte) { return byte != 0; }))
        parser->parse_interrupt(joined_parts.data());
    return 0;
}

// The parser has printed the table already.
template<>
void request_handler::show_result(std::shared_ptr<interrupt_parser>, std::ostream&) {}

// ------------------------------------------------------------------------------------ processes

template<>
int request_handler::handle_request(std::shared_ptr<process_stat_parser> parser) {
    data_struct* answer = client->get_recv_data();
    std::uint64_t elapsed = 0;
    if (parser->last_process_stat)
        elapsed = time_diff(parser->last_time, answer->time);
    // The product is unsigned because an interval that has wrapped would overflow a signed one.
    const auto cpus = static_cast<std::uint64_t>(static_cast<cpu_stat_manager*>(manager)->cpus_num);
    parser->parse_process_stat(answer->msg,
                               static_cast<unsigned int>(ms_to_ujiffies(cpus * elapsed)));
    parser->last_time = answer->time;
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<process_stat_parser> parser, std::ostream& out) {
    out << std::dec << "pid:" << parser->pid << ", usage:" << parser->process_usage
        << "%, processor:" << parser->processor << ", rss:" << parser->rss << " pages"
        << ", priority:" << parser->priority << ", state:" << parser->state << std::endl;
}

template<>
int request_handler::handle_request(std::shared_ptr<process_io_parser> parser) {
    data_struct* answer = client->get_recv_data();
    std::uint64_t elapsed = 0;
    if (parser->last_pio)
        elapsed = time_diff(parser->last_time, answer->time);
    parser->parse_process_io(answer->msg, static_cast<unsigned int>(elapsed));
    parser->last_time = answer->time;
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<process_io_parser> parser, std::ostream& out) {
    out << std::dec << "pid:" << parser->pid << ", read/s:" << parser->rd_per_second
        << ", write/s:" << parser->wr_per_second << std::endl;
}

template<>
int request_handler::handle_request(std::shared_ptr<process_all_parser> parser) {
    parser->parse_process_all(client->get_recv_data()->msg);
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<process_all_parser> parser, std::ostream& out) {
    out << std::dec << std::left << std::setw(8) << "PID" << std::setw(8) << "PPID" << std::setw(8)
        << "CPU" << std::setw(24) << "Comm" << std::setw(10) << "IO:KB/s" << std::setw(8) << "%CPU"
        << std::setw(8) << "%NNU" << std::setw(10) << "Rss" << std::setw(10) << "Priority"
        << std::setw(10) << "State" << std::setw(10) << "Net:KB/s" << std::endl;
    for (const pid_msg& row : parser->pid_info->send_pid_info) {
        const std::int64_t rss = row.rss;
        out << std::setw(8) << row.pid << std::setw(8) << row.ppid << std::setw(8) << row.processor
            << std::setw(24) << field_text(row.comm) << std::fixed << std::setprecision(2)
            << std::setw(10) << row.io_per_second << std::setw(8) << row.process_usage
            << std::setw(8) << row.nnu_usage << std::setw(10);
        show_by_unit(static_cast<unsigned long>(rss), out, 0);
        out << std::setw(10) << row.priority << std::setw(10) << row.state << std::setw(10)
            << row.net_band << std::endl;
    }
}

// ------------------------------------------------------------------------- performance counting

template<>
int request_handler::handle_request(std::shared_ptr<perf_stat_parser> parser) {
    data_struct* answer = client->get_recv_data();
    switch (answer->sub_command) {
    case cpu_request::enable_counters:
        parser->enabled = true;
        break;
    case cpu_request::read_counters:
        parser->during_ms = static_cast<std::int64_t>(time_diff(parser->timestamp, answer->time));
        parser->parse_perf_stat(answer->msg);
        break;
    case cpu_request::disable_counters:
        parser->enabled = false;
        break;
    default:
        break;
    }
    parser->timestamp = answer->time;
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<perf_stat_parser> parser, std::ostream& out) {
    if (parser->counters == nullptr)
        return;
    const perf_counters& c = *parser->counters;
    auto line = [&out](const char* label) -> std::ostream& {
        return out << std::left << std::setw(24) << label;
    };
    auto ratio = [](std::uint64_t part, std::uint64_t whole) {
        return static_cast<double>(static_cast<float>(part) / static_cast<float>(whole));
    };
    auto percent = [&](const char* label, std::uint64_t part, std::uint64_t whole) {
        line(label) << ratio(part, whole) * 100.0 << " %\n";
    };
    out << "System Performance Stat:\n" << std::dec << std::fixed << std::setprecision(2);
    line("During: ") << parser->during_ms << " ms\n";
    line("IPC: ") << ratio(c.instructions, c.cycles) << "\n";
    line("Migrations: ") << +c.migrations << "\n";
    line("Page_faults: ") << +c.page_faults << "\n";
    line("Context-switch: ") << +c.cs << "\n";
    percent("Frontend_stall: ", c.stall_frontend, c.cycles);
    percent("Backend_stall: ", c.stall_backend, c.cycles);
    percent("L1D-miss: ", c.l1d_misses, c.l1d_load);
    percent("L1I-miss: ", c.l1i_misses, c.l1i_load);
    percent("L2D-miss: ", c.l2d_cache_refill, c.l2d_cache);
    percent("L3D-miss: ", c.l3d_cache_refill, c.l3d_cache);
    percent("LLC-miss: ", c.llc_misses, c.llc_load);
    percent("Dtlb-miss: ", c.dtlb_misses, c.dtlb_load);
    percent("ITLB-miss: ", c.itlb_misses, c.itlb_load);
    percent("Branch-miss: ", c.branch_misses, c.branches);
}

// -------------------------------------------------------------------------------------- manager

cpu_stat_manager::cpu_stat_manager()
    : cpu_parser(std::make_shared<cpus_stats_parser>()),
      int_parser(std::make_shared<interrupt_parser>()),
      process_parser(std::make_shared<process_all_parser>()),
      perf_parser(std::make_shared<perf_stat_parser>()) {
    request_cmd = cpu_command;
    manager = this;
    log_tag = "MONCL_CPU";
}

cpu_stat_manager::cpu_stat_manager(std::shared_ptr<client_comm> comm) : cpu_stat_manager() {
    if (comm->get_socket() == nullptr)
        connect(comm, "CPU connect to server failed");
    client = comm;
}

cpu_stat_manager::cpu_stat_manager(const std::string& ip, int port) : cpu_stat_manager() {
    connect(std::make_shared<client_comm>(ip, port), "CPU connect to server failed");
}

cpu_stat_manager::~cpu_stat_manager() {
    if (!client)
        return;
    cpu_mon_exit();
    if (perf_parser->enabled)
        disable_perf_mon();
}

void cpu_stat_manager::add_stat_monitor_process(int pid) {
    std::lock_guard<std::mutex> lock(req_lock);
    stat_parser.push_back(std::make_shared<process_stat_parser>(pid, cpus_num));
}

void cpu_stat_manager::add_io_monitor_process(int pid) {
    std::lock_guard<std::mutex> lock(req_lock);
    io_parser.push_back(std::make_shared<process_io_parser>(pid));
}

int cpu_stat_manager::get_cpu_usage(std::ostream* os) {
    return get_sys_info(cpu_request::usage, cpu_parser, os);
}

template<class T>
int cpu_stat_manager::get_each_process(int sub_command,
                                       const std::vector<std::shared_ptr<T>>& parsers,
                                       std::ostream* os) {
    std::vector<std::shared_ptr<T>> watched;
    {
        std::lock_guard<std::mutex> lock(req_lock);
        watched = parsers;
    }
    std::int64_t failures = 0;
    for (const auto& parser : watched)
        failures += get_process_info(sub_command, parser, os);
    return static_cast<int>(
        std::max<std::int64_t>(failures, std::numeric_limits<std::int32_t>::min()));
}

int cpu_stat_manager::get_process_stat(std::ostream* os) {
    return get_each_process(cpu_request::process_status, stat_parser, os);
}

int cpu_stat_manager::get_process_io(std::ostream* os) {
    return get_each_process(cpu_request::process_io, io_parser, os);
}

int cpu_stat_manager::get_process_all(int pid, std::ostream* os) {
    std::uint8_t payload[4];
    u32_to_u8(static_cast<unsigned int>(pid), payload);
    std::lock_guard<std::mutex> lock(req_lock);
    process_parser->pid = pid;
    return run_cycle(cpu_request::busiest_processes, payload, sizeof payload, process_parser, os);
}

int cpu_stat_manager::get_interrupt(std::ostream* os) {
    return get_sys_info(cpu_request::interrupts, int_parser, os);
}

int cpu_stat_manager::enable_perf_mon() {
    return get_sys_info(cpu_request::enable_counters, perf_parser, nullptr);
}

int cpu_stat_manager::get_perf_data(std::ostream* os) {
    const int r = get_sys_info(cpu_request::read_counters, perf_parser, os);
    return r == 0 ? r : log_failure("get_perf_data failed:%d\n", r);
}

int cpu_stat_manager::disable_perf_mon() {
    return get_sys_info(cpu_request::disable_counters, perf_parser, nullptr);
}

int cpu_stat_manager::cpu_mon_exit() {
    constexpr unsigned int leaving = 10;
    std::uint8_t payload[4];
    u32_to_u8(leaving, payload);
    std::lock_guard<std::mutex> lock(req_lock);
    return std::min(exchange(cpu_request::busiest_processes, payload, sizeof payload), 0);
}
