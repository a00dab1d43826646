// Memory and peripheral queries and their reports.
#include "peri_stat_manager.h"

#include "request_numbers.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <utility>

using ns_req_template::request_handler;

namespace {
constexpr const char* connect_failure = "PERI connect to server failed";

// Calls `show` for each entry, and writes commas between them.
template<class Entries, class Show>
void show_list(const Entries& entries, std::ostream& out, Show show) {
    bool first = true;
    for (const auto& entry : entries) {
        if (!std::exchange(first, false))
            out << ", ";
        show(entry);
    }
}
} // namespace

// ----------------------------------------------------------------------- temperatures and cooling

template<>
int request_handler::handle_request(std::shared_ptr<all_thermal_parser> parser) {
    parser->parse_all(client->get_recv_data()->msg);
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<all_thermal_parser> parser, std::ostream& out) {
    out << std::left << std::setw(16) << "Thermal(mC):";
    for (std::uint64_t temp : parser->all_th)
        out << std::setw(7) << temp;
    out << std::setw(16) << "Cooling_stat:";
    for (std::uint64_t stat : parser->all_co)
        out << std::setw(7) << stat;
}

template<>
int request_handler::handle_request(std::shared_ptr<cooling_parser> parser) {
    parser->parse_cooling(client->get_recv_data()->msg);
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<cooling_parser> parser, std::ostream& out) {
    out << parser->stat;
}

template<>
int request_handler::handle_request(std::shared_ptr<thermal_parser> parser) {
    parser->parse_thermal(client->get_recv_data()->msg);
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<thermal_parser> parser, std::ostream& out) {
    out << parser->temp;
}

// ------------------------------------------------------------------------------- memory and ion

template<>
int request_handler::handle_request(std::shared_ptr<ion_info_parser> parser) {
    parser->parse_ion_info(client->get_recv_data()->msg);
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<ion_info_parser> parser, std::ostream& out) {
    show_list(parser->ion_vec, out, [&out](const ion_info& heap) {
        out << field_text(heap.ion_name) << ": ";
        show_by_unit(heap.used, out, 0);
    });
}

template<>
int request_handler::handle_request(std::shared_ptr<meminfo_parser> parser) {
    parser->parse_meminfo(client->get_recv_data()->msg);
    return 0;
}

template<>
void request_handler::show_result(std::shared_ptr<meminfo_parser> parser, std::ostream& out) {
    auto show = [&out](const char* label, std::uint64_t kb) {
        out << std::dec << label;
        show_by_unit(kb, out, 1);
    };
    const meminfo& mem = parser->mem;
    show("MemTotal: ", mem.memTotal);
    show(", Available: ", mem.memAvailable);
    show(", Anon: ", mem.anon);
    show(", File: ", mem.file);
    show(", Slab: ", mem.slab);
    show(", Buffer/Cache: ", mem.buffer + mem.cached);
}

// ---------------------------------------------------------------- block devices and partitions

template<>
int request_handler::handle_request(std::shared_ptr<block_stat_parser> parser) {
    return parser->block_stat_parse(client->get_recv_data()->msg);
}

template<>
void request_handler::show_result(std::shared_ptr<block_stat_parser> parser, std::ostream& out) {
    const block_stats& now = *parser->stats;
    const block_stats* before = parser->last_stats.get();
    const auto elapsed_ms = time_diff(parser->last_time, client->get_recv_data()->time);
    const float seconds = static_cast<float>(elapsed_ms) / 1000;
    auto rate = [&](std::uint64_t block_stat::*kb, int i) {
        return before == nullptr
                   ? 0
                   : static_cast<float>(now.stat[i].*kb - before->stat[i].*kb) / seconds;
    };
    out << std::left << std::setw(15) << "Device";
    for (int i = 0; i < now.num; ++i)
        out << std::setw(15) << field_text(now.stat[i].name);
    out << std::endl << std::setw(12) << "Rd/Wr(KB/s)" << std::defaultfloat << std::setprecision(6);
    for (int i = 0; i < now.num; ++i)
        out << std::right << std::setw(7) << rate(&block_stat::rd_kb, i) << "/" << std::left
            << std::setw(7) << rate(&block_stat::wr_kb, i);
}

template<>
int request_handler::handle_request(std::shared_ptr<partition_parser> parser) {
    return parser->partition_parse(client->get_recv_data()->msg) != 0;
}

template<>
void request_handler::show_result(std::shared_ptr<partition_parser> parser, std::ostream& out) {
    out << "Partition Avail/Size: ";
    show_list(parser->part_vec, out, [&out](const part_info& part) {
        out << field_text(part.part_name) << ": ";
        show_by_unit(part.f_bavail * part.f_frsize, out, 0);
        out << "/";
        show_by_unit(part.f_blocks * part.f_frsize, out, 0);
    });
}

// -------------------------------------------------------------------------------------- manager

peri_stat_manager::peri_stat_manager()
    : all_th_parser(std::make_shared<all_thermal_parser>()),
      co_parser(std::make_shared<cooling_parser>()), th_parser(std::make_shared<thermal_parser>()),
      ion_parser(std::make_shared<ion_info_parser>()),
      block_parser(std::make_shared<block_stat_parser>()),
      part_parser(std::make_shared<partition_parser>()),
      mem_parser(std::make_shared<meminfo_parser>()) {
    request_cmd = peripheral_command;
    manager = this;
    log_tag = "MONCL_PERI";
}

peri_stat_manager::peri_stat_manager(std::shared_ptr<client_comm> comm) : peri_stat_manager() {
    connect(std::move(comm), connect_failure);
}

peri_stat_manager::peri_stat_manager(const std::string& ip, int port) : peri_stat_manager() {
    connect(std::make_shared<client_comm>(ip, port), connect_failure);
}

int peri_stat_manager::get_all_thermal(std::ostream* os) {
    return get_sys_info(peripheral_request::all_thermal, all_th_parser, os);
}

int peri_stat_manager::get_cooling_0(std::ostream* os) {
    return get_sys_info(peripheral_request::cooling, co_parser, os);
}

int peri_stat_manager::get_cooling_1(std::ostream* os) {
    return get_sys_info(peripheral_request::cooling + 1, co_parser, os);
}

int peri_stat_manager::get_thermal(int sub_command, std::ostream* os) {
    return get_sys_info(sub_command, th_parser, os);
}

int peri_stat_manager::get_ion_info(std::ostream* os) {
    return get_sys_info(peripheral_request::ion_heaps, ion_parser, os);
}

int peri_stat_manager::get_meminfo(std::ostream* os) {
    return get_sys_info(peripheral_request::memory, mem_parser, os);
}

int peri_stat_manager::get_block_usage(std::ostream* os) {
    std::lock_guard<std::mutex> lock(req_lock);
    const int r = run_standard_cycle(peripheral_request::block_devices, block_parser, os);
    if (r == 0)
        block_parser->last_time = client->get_recv_data()->time;
    return r;
}

int peri_stat_manager::get_partition_info(std::vector<const char*>& parts, std::ostream* os) {
    constexpr std::size_t payload_end = request_payload_max - 1;
    std::uint8_t payload[request_payload_max];
    payload[0] = static_cast<std::uint8_t>(parts.size());
    std::size_t used = 1;
    for (const char* name : parts) {
        const std::size_t length = std::strlen(name);
        if (length > payload_end || used + length + 1 > payload_end)
            break;
        std::copy_n(name, length, payload + used);
        payload[used + length] = ' ';
        used += length + 1;
    }
    return get_req_info(peripheral_request::partitions, payload, static_cast<int>(used),
                        part_parser, os);
}
