// Faults between client and server, for each manager: what the query returns and logs, that it ends
// in time and keeps the sample before, and how a front end recovers.
#include "child_process.h"
#include "cpu_stat_manager.h"
#include "fault_relay.h"
#include "log_capture.h"
#include "manager_support.h"
#include "net_stat_manager.h"
#include "nnu_ratio_manager.h"
#include "peri_stat_manager.h"
#include "sys_info_manager.h"
#include "vio_info_manager.h"

#include <atomic>
#include <csignal>
#include <unistd.h>
#include <zmq.h>

namespace {
/// A manager with one of its queries.
struct front_end {
    std::shared_ptr<ns_req_template::request_handler> manager;
    std::function<int()> ask;
    std::function<int()> sample; // the figure decoded last, -1 without any
};

/// A kind of front end, and the payload whose figure is @p n.
struct subject {
    const char* name;
    std::function<front_end(int port)> start;
    std::function<std::string(int n)> payload;
    bool empties = false; // a query empties what it fills
};

template<class Manager, class Query, class Sample>
std::function<front_end(int)> starter(Query query, Sample sample) {
    return [query, sample](int port) {
        auto m = std::make_shared<Manager>("127.0.0.1", port);
        return front_end{m, [m, query] { return query(*m); },
                         [m, sample] { return static_cast<int>(sample(*m)); }};
    };
}

const subject subjects[] = {
    {"SYSINFO",
     starter<sysinfo_manager>([](auto& m) { return m.get_version(); },
                              [](auto& m) { return std::stoi(m.last_version()); }),
     [](int n) { return std::to_string(n); }},
    {"CPU",
     starter<cpu_stat_manager>([](auto& m) { return m.get_cpu_usage(nullptr); },
                               [](auto& m) { return m.cpu_parser->last_stats->at(0)->user; }),
     [](int n) { return "cpu " + std::to_string(n); }},
    {"NNU",
     starter<nnu_ratio_manager>([](auto& m) { return m.get_nnu0_ratio(nullptr); },
                                [](auto& m) { return m.nnu_parser->nnu_rat; }),
     [](int n) { return std::to_string(n); }},
    {"PERI",
     starter<peri_stat_manager>([](auto& m) { return m.get_meminfo(nullptr); },
                                [](auto& m) { return m.mem_parser->mem.memTotal; }),
     [](int n) { return "MemTotal: " + std::to_string(n); }},
    {"VIO",
     starter<vio_info_manager>([](auto& m) { return m.get_gdc_fps(); },
                               [](auto& m) {
                                   const auto& fps = m.gdc_parse->fps;
                                   return fps.empty() ? -1 : int{fps.begin()->second->output_fps};
                               }),
     [](int n) { return "gdc0 pipe 3 a b " + std::to_string(n); }, true},
    {"NET",
     starter<net_stat_manager>([](auto& m) { return m.get_bandwidth_stat(nullptr); },
                               [](auto& m) { return m.parser->dev_result[0].total; }),
     [](int n) {
         return native(1) + field("lo", 16 + 7) + static_cast<char>(n); // most significant first
     }},
};

using clock_type = std::chrono::steady_clock;
constexpr std::chrono::seconds in_time{4}; // the time-out of 1 s, and 3 s for a busy machine
// The transport's bytes in front of a packet: a flag byte and a length of 8; before them all an
// empty frame.
constexpr std::size_t head = 9;
constexpr std::size_t first = 2 + head;
constexpr std::size_t packet_size = answer_frame_size;
const std::string silence = "zmq_poll timeout, please check connection with 127.0.0.1:";

constexpr const char* out_of_turn = "Operation cannot be accomplished in current state";
// ZeroMQ never talks again to a peer that broke its protocol.
constexpr const char* no_peer = "Resource temporarily unavailable";

bool can_send(client_comm& connection) {
    int events = 0;
    std::size_t size = sizeof events;
    zmq_getsockopt(connection.get_socket(), ZMQ_EVENTS, &events, &size);
    return (events & ZMQ_POLLOUT) != 0;
}

/// A fault of one answer, and what becomes of it.
struct wire_fault {
    std::string name;
    fault_relay::fault damage;
    int code;
    std::string logged;            // by the connection; what ends in a colon goes on with the port
    const char* refusal = nullptr; // what the next send is told, if anything
    std::size_t parts = 1;
};

std::vector<wire_fault> wire_faults(std::size_t index) {
    // In the transport's frames, in the header, in the payload.
    constexpr std::size_t ends[] = {1, 3, head, first, first + 8, first + 5000};
    const std::size_t end = ends[index];
    std::vector<wire_fault> faults = {
        {"none", nullptr, 0, ""},
        {"late", [](auto&) { return usleep(1200000) == 0; }, -3, silence, out_of_turn},
        {"lost", [](auto& wire) { return wire.clear(), true; }, -3, silence, out_of_turn},
        {"dies", [end](auto& wire) { return wire.resize(end), false; }, -3, silence, out_of_turn},
        {"dies between parts", [](auto& wire) { return wire.resize(first + packet_size), false; },
         -3, silence, out_of_turn, 2},
        {"wrong checksum", [](auto& wire) { return wire[first + offsetof(data_struct, crc)] = 1; },
         -4, "crc error, compute crc is 0 , receive crc is 1"},
        {"twice", [](auto& wire) { return wire += wire, true; }, 0, ""},
        {"a part too many", nullptr, 0, "", out_of_turn, 2},
        {"noise behind", [](auto& wire) { return wire += std::string(99, '\xff'), true; }, 0, "",
         no_peer},
    };
    // The fields of the header, in frames that the transport takes for whole.
    for (std::size_t size : {0U, 4U, 8U, 12U, 14U, 16U, 18U, 19U, 24U, 40U, 43U})
        faults.push_back(
            {"cut to " + std::to_string(size),
             [size](auto& wire) {
                 wire.resize(first + size);
                 return wire.replace(first - 2, 2, {'\0', static_cast<char>(size)}), true;
             },
             -1,
             "zmq_recv error, frame of " + std::to_string(size) +
                 " bytes is shorter than its header"});
    return faults;
}

class fault : public testing::TestWithParam<std::size_t> {
protected:
    const subject& tested() const { return subjects[GetParam()]; }
    // Asks, and expects @p code, in time and with a line of the connection's.
    void expect(int code, const std::string& logged, const char* failed = "Receive") {
        log_capture log;
        const auto start = clock_type::now();
        EXPECT_EQ(one_.ask(), code);
        EXPECT_LT(clock_type::now() - start, in_time);
        const std::string port = logged == silence ? std::to_string(port_) : "";
        const std::string line = failed + std::string(" message error with ");
        EXPECT_EQ(log.take(), code >= 0
                                  ? ""
                                  : "6 MONCL_COMM: " + logged + port + "\n6 MONCL_" +
                                        tested().name + ": " + line + std::to_string(code) + "\n");
    }
    void expect_refused(const std::string& why = out_of_turn) {
        expect(-2, "zmq_send error, " + why, "Send");
    }
    front_end one_;
    int port_ = 0;
};

} // namespace

TEST_P(fault, on_the_wire_costs_one_answer) {
    scripted_server server;
    std::atomic<int> asked{0};
    std::size_t parts = 1;
    server.answer([&](int, int sub_command, const std::string&) {
        return answer_packets(parts, packet(sub_command, tested().payload(++asked)));
    });
    fault_relay relay(server.port());
    port_ = relay.port();
    one_ = tested().start(port_);
    for (const wire_fault& f : wire_faults(GetParam())) {
        SCOPED_TRACE(f.name);
        parts = 1;
        expect(0, "");
        const int before = tested().empties ? -1 : asked.load();
        EXPECT_EQ(one_.sample(), asked);
        parts = f.parts;
        relay.damage_next(2 + parts * (head + packet_size), f.damage);
        expect(f.code, f.logged);
        EXPECT_EQ(one_.sample(), f.code < 0 ? before : asked.load());
        while (f.refusal == no_peer && can_send(*one_.manager->client))
            usleep(1000);
        if (f.refusal != nullptr)
            expect_refused(f.refusal);
        else
            expect(0, "");
        EXPECT_EQ(start_over(*one_.manager->client), 0);
    }
    close_at_once(*one_.manager->client);
}

TEST_P(fault, of_the_server_lasts_no_longer_than_the_server_is_away) {
    const std::string board = "--simulate-board";
    auto server = std::make_unique<server_process>(0, board);
    port_ = server->port;
    one_ = tested().start(port_);
    expect(0, "");
    for (int number : {SIGSTOP, SIGKILL}) {
        SCOPED_TRACE(strsignal(number));
        server->send_signal(number);
        expect(-3, silence);
        expect_refused();
        EXPECT_EQ(start_over(*one_.manager->client), 0) << "the id is held: nothing is asked";
        expect(-3, silence);
        if (number == SIGSTOP)
            server->send_signal(SIGCONT);
        else
            server = nullptr, server = std::make_unique<server_process>(port_, board);
        expect_refused();
        EXPECT_EQ(start_over(*one_.manager->client), 0);
        expect(0, "");
    }
    server = nullptr;
    const auto start = clock_type::now();
    one_ = {};
    EXPECT_LT(clock_type::now() - start, in_time);
}

INSTANTIATE_TEST_SUITE_P(managers, fault, testing::Range<std::size_t>(0, std::size(subjects)),
                         [](const auto& tested) { return subjects[tested.param].name; });
