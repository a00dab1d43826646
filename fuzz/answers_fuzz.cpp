// Whole answers: what a server may send back to each query of the six managers, over real sockets.
//
// The input is a query, then parts: two bytes with the size of the part, one with its number of
// copies, and a piece for its first bytes; the rest of the part is zeros.
#include "cpu_stat_manager.h"
#include "fuzz_support.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "sys_info_manager.h"
#include "vio_info_manager.h"

#include <thread>
#include <zmq.h>

namespace {
constexpr std::size_t most_parts = answer_parts_max + 10;

// Answers every request with the same parts. They are set between requests only.
class answering_server {
public:
    answering_server() {
        zmq_bind(socket_, "tcp://127.0.0.1:*");
        port_ = fuzz::bound_port(socket_);
        std::thread([this] { serve(); }).detach();
    }
    int port() const { return port_; }

    std::vector<std::string> parts{1};

private:
    [[noreturn]] void serve() {
        char request[2000];
        for (;;) {
            zmq_recv(socket_, request, sizeof request, 0);
            for (std::size_t i = 0; i < parts.size(); ++i)
                zmq_send(socket_, parts[i].data(), parts[i].size(),
                         i + 1 < parts.size() ? ZMQ_SNDMORE : 0);
        }
    }

    void* socket_ = zmq_socket(zmq_ctx_new(), ZMQ_REP);
    int port_;
};

// The managers of one run, on the connection of all runs.
struct managers {
    explicit managers(const std::shared_ptr<client_comm>& connection) {
        cpu.client = connection;
        net.client = connection;
        nnu.client = connection;
        peri.client = connection;
        vio.client = connection;
        cpu.add_stat_monitor_process(1);
        cpu.add_io_monitor_process(1);
        net.parser->pid_result.try_emplace(1);
    }
    ~managers() { cpu.client = nullptr; } // it would say goodbye

    cpu_stat_manager cpu;
    net_stat_manager net;
    nnu_ratio_manager nnu;
    peri_stat_manager peri;
    vio_info_manager vio;
};

// A handshake of a connection of its own.
void shake_hands(int port) {
    client_comm::client_id = 0;
    client_comm connection("127.0.0.1", port);
    connection.connect_to_server();
    connection.back_client_id();
    const int linger_ms = 0;
    zmq_setsockopt(connection.get_socket(), ZMQ_LINGER, &linger_ms, sizeof linger_ms);
    connection.close_connect();
    client_comm::client_id = 1;
}

void receive_parts(client_comm& connection, int room) {
    const auto buffer = std::make_unique<unsigned char[]>(static_cast<std::size_t>(room));
    connection.send_msg_to_server(1, 1, nullptr, 0);
    if (connection.recv_msg_from_server() >= 0)
        connection.recv_more_msg(buffer.get(), room);
}

void ask(int query, managers& m, sysinfo_manager& system, int port) {
    client_comm& connection = *m.cpu.client;
    std::ostream& out = fuzz::report();
    std::vector<const char*> partitions{"/", "userdata"};
    switch (query) {
    case 0:
        return shake_hands(port);
    case 1:
        return receive_parts(connection, 0);
    case 2:
        return receive_parts(connection, answer_payload_max - 1);
    case 3:
        return receive_parts(connection, 2 * answer_payload_max);
    case 4:
        return receive_parts(connection, answer_parts_max * answer_payload_max);
    case 5:
        connection.back_client_id();
        client_comm::client_id = 1;
        return;
    case 6:
        m.cpu.get_cpu_usage(&out);
        m.cpu.get_cpu_usage(&out);
        return;
    case 7:
        m.cpu.get_process_stat(&out);
        m.cpu.get_process_stat(&out);
        return;
    case 8:
        m.cpu.get_process_io(&out);
        return;
    case 9:
        m.cpu.get_process_all(0, &out);
        return;
    case 10:
        m.cpu.get_interrupt(&out);
        return;
    case 11:
        m.cpu.enable_perf_mon();
        m.cpu.get_perf_data(&out);
        return;
    case 12:
        m.net.start_net_monitor();
        m.net.get_bandwidth_stat(&out);
        m.net.get_bandwidth_stat(&out);
        return;
    case 13:
        m.net.exit_net_monitor();
        return;
    case 14:
        m.nnu.get_nnu_ratio_all(&out);
        return;
    case 15:
        m.peri.get_all_thermal(&out);
        return;
    case 16:
        m.peri.get_cooling_0(&out);
        return;
    case 17:
        m.peri.get_thermal(3, &out);
        return;
    case 18:
        m.peri.get_ion_info(&out);
        return;
    case 19:
        m.peri.get_meminfo(&out);
        return;
    case 20:
        m.peri.get_block_usage(&out);
        m.peri.get_block_usage(&out);
        return;
    case 21:
        m.peri.get_partition_info(partitions, &out);
        return;
    case 22:
        m.vio.get_isp_info();
        return;
    case 23:
        m.vio.get_pym_stat();
        return;
    case 24:
        m.vio.sort_all_vio_fps(&out);
        return;
    case 25:
        m.vio.get_gdc_fps();
        return;
    case 26:
        m.vio.get_vio_delay();
        return;
    case 27:
        system.get_cpu0_freq();
        return;
    case 28:
        system.get_cpu_possible(nullptr);
        return;
    default:
        system.get_version();
    }
}

std::vector<std::string> read_parts(fuzz::input& in) {
    std::vector<std::string> parts;
    do {
        const std::size_t size = in.two_bytes() % (2 * answer_frame_size);
        const std::size_t copies = in.byte() % most_parts + 1;
        std::string part(in.piece());
        part.resize(size);
        for (std::size_t i = 0; i < copies && parts.size() < most_parts; ++i)
            parts.push_back(part);
    } while (!in.empty() && parts.size() < most_parts);
    return parts;
}

// Takes what is left of an answer. Until then the socket sends no request.
void take_rest(client_comm& connection) {
    char part;
    while (fuzz::receive(connection.get_socket(), &part, 1) >= 0) {
    }
    fuzz::expect(zmq_errno() == EFSM, "no connection any more");
}
} // namespace

void fuzz_answers(const std::uint8_t* data, std::size_t size) {
    client_comm::client_id = 1; // no handshake but the one that is a query
    static answering_server server;
    static sysinfo_manager system("127.0.0.1", server.port());
    static const std::shared_ptr<client_comm> connection = system.client;

    fuzz::input in(data, size);
    const int query = in.byte();
    connection->stop_at_last_part(query >= 128);
    server.parts = read_parts(in);
    {
        managers all(connection);
        ask(query % 30, all, system, server.port());
    }
    const unsigned char* after = connection->get_recv_data()->msg + answer_payload_max;
    fuzz::expect(after[0] == 0 && after[3] == 0, "no zero after the payload");
    take_rest(*connection);
}

static const fuzz::target registered("answers", fuzz_answers);
